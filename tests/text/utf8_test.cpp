#include "text/utf8.h"

#include "support/failure_of.h"
#include "support/simulated_fixture.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

class Utf8 : public SimulatedFixture {};

constexpr std::u16string_view kText = u"a\\b/\u00e9\u20ac\U0001F600\u0001";
constexpr std::string_view kUtf8 = "a\\b/\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\x01";

TEST_F(Utf8, WellFormedTextIsConvertedBothWays) {
  EXPECT_EQ(Utf8FromUtf16(kText), kUtf8);
  EXPECT_EQ(Utf16FromUtf8(kUtf8), kText);
  EXPECT_EQ(LenientUtf8(u"a\xd800"), "a\xef\xbf\xbd");
  EXPECT_EQ(Utf8FromUtf16(u"") + LenientUtf8(u""), "");
  EXPECT_EQ(Utf16FromUtf8(""), u"");
}

TEST_F(Utf8, EveryFailureHasItsCodeAndLeavesTheTextAlone) {
  std::string text = "before";
  const auto narrow = [&](std::u16string_view wide) {
    return FailureOf([&] { AppendUtf8(text, wide); });
  };
  const auto widen = [](std::string_view utf8) {
    return FailureOf([&] { static_cast<void>(Utf16FromUtf8(utf8)); });
  };
  EXPECT_EQ(narrow(u"a\xd800"), SystemMessage(1113));
  EXPECT_EQ(widen("a\xe2\x82"), SystemMessage(1113));
  // More units than the platform's lengths can express; none of them is read.
  EXPECT_EQ(narrow({kText.data(), std::size_t{1} << 31}), SystemMessage(87));
  for (const std::uint64_t occurrence : {1u, 2u}) {
    computer.calls.ClearFaults();
    computer.calls.Inject({.call = Call::WideCharToMultiByte, .first = occurrence, .code = 8});
    computer.calls.Inject({.call = Call::MultiByteToWideChar, .first = occurrence, .code = 32});
    EXPECT_EQ(narrow(u"a"), SystemMessage(8)) << occurrence;
    EXPECT_EQ(widen("a"), SystemMessage(32)) << occurrence;
  }
  EXPECT_EQ(text, "before");
}

}  // namespace
}  // namespace tolvarine::updater
