#include "text/system_error.h"

#include "support/simulated_fixture.h"

namespace tolvarine::updater {
namespace {

class SystemErrors : public SimulatedFixture {
 protected:
  // The message after so many failed attempts, and whether the system's language was asked for.
  std::string Message(std::uint32_t code, std::uint64_t failures = 0) {
    computer.calls.Reset();
    computer.calls.Inject({.call = Call::FormatMessageA, .times = failures, .code = 8});
    computer.calls.keep_trace = true;
    const std::string message = SystemMessage(code);
    const bool asked = std::ranges::count(computer.calls.trace, Call::GetLocaleInfoEx,
                                          &simulated::CallRecord::call) != 0;
    return message + (asked ? " (asked)" : "");
  }
};

TEST_F(SystemErrors, LanguagesAreTriedInOrderUntilOneHasAMessage) {
  EXPECT_EQ(Message(5), "Access is denied.");  // Without the line end.
  EXPECT_EQ(Message(5, 1), "Access is denied. (asked)");
  EXPECT_EQ(Message(5, 2), "Access is denied. (asked)");
  EXPECT_EQ(Message(5, 3), "unknown error (asked)");
  EXPECT_EQ(Message(0xE0000001), "unknown error (asked)");
  computer.locale.system_language = std::nullopt;
  EXPECT_EQ(Message(5, 1), "Access is denied. (asked)") << "any language";
  EXPECT_STREQ(SystemError(5, "Could not lock it").what(), "Could not lock it: Access is denied.");
}

}  // namespace
}  // namespace tolvarine::updater
