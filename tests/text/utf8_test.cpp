#include "text/utf8.h"

#include "support/simulated_fixture.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

class Utf8 : public SimulatedFixture {};

template <typename Conversion>
std::uint32_t CodeOf(Conversion convert) {
  try {
    static_cast<void>(convert());
    return 0;
  } catch (const SystemError& failure) {
    return failure.code();
  }
}

TEST_F(Utf8, WellFormedTextSurvivesBothWaysAndAllElseIsRefused) {
  EXPECT_EQ(Utf8FromUtf16(u"\u00e9\u20ac\U0001F600"), "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
  for (const std::u16string_view text : {u"", u"a\\b/c", u"\u00e9\u20ac", u"\U0001F600\u0001"}) {
    EXPECT_EQ(Utf16FromUtf8(Utf8FromUtf16(text)), text);
  }
  EXPECT_EQ(CodeOf([] { return Utf8FromUtf16(u"a\xd800"); }), 1113u);
  EXPECT_EQ(CodeOf([] { return Utf16FromUtf8("a\xe2\x82"); }), 1113u);
  for (const std::uint64_t pass : {1u, 2u}) {
    computer.calls.ClearFaults();
    computer.calls.Inject({.call = Call::WideCharToMultiByte, .first = pass, .code = 8});
    computer.calls.Inject({.call = Call::MultiByteToWideChar, .first = pass, .code = 14});
    EXPECT_EQ(CodeOf([] { return Utf8FromUtf16(u"a"); }), 8u);
    EXPECT_EQ(CodeOf([] { return Utf16FromUtf8("a"); }), 14u);
  }
}

}  // namespace
}  // namespace tolvarine::updater
