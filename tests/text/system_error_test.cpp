#include "text/system_error.h"

#include "support/simulated_fixture.h"

namespace tolvarine::updater {
namespace {

class SystemErrors : public SimulatedFixture {
 protected:
  // The message, behind the calls that it took where the first `failures` attempts fail.
  std::string Message(std::uint32_t code, std::uint64_t failures = 0) {
    computer.calls.ClearFaults();
    computer.calls.Inject({.call = Call::FormatMessageA, .times = failures, .code = 8});
    computer.calls.trace.clear();
    computer.calls.keep_trace = true;
    const std::string message = SystemMessage(code);
    std::string calls;
    for (const simulated::CallRecord& record : computer.calls.trace) {
      calls += record.call == Call::FormatMessageA ? "ask " : "which ";
    }
    return calls + message;
  }
};

TEST_F(SystemErrors, LanguagesAreTriedInTheirOrderUntilOneHasAText) {
  EXPECT_EQ(Message(5), "ask Access is denied.");  // Without the line end that it came with.
  EXPECT_EQ(Message(5, 1), "ask which ask Access is denied.");
  EXPECT_EQ(Message(5, 2), "ask which ask ask Access is denied.");
  EXPECT_EQ(Message(5, 3), "ask which ask ask unknown error");
  EXPECT_EQ(Message(0xE0000001), "ask which ask ask unknown error");
  computer.locale.system_language =
      std::nullopt;  // The machine does not tell: any language will do.
  EXPECT_EQ(Message(5, 1), "ask which ask Access is denied.");
  EXPECT_STREQ(SystemError(5, "Could not lock it").what(), "Could not lock it: Access is denied.");
}

}  // namespace
}  // namespace tolvarine::updater
