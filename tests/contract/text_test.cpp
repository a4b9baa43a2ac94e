// Conversions of text, lower case, numbers, command lines and the system's messages.

#include "platform/text.h"

#include <cerrno>
#include <limits>
#include <vector>

#include "contract/fixture.h"
#include "platform/shell.h"
#include "simulated_windows/lower_case_table.h"

namespace tolvarine::updater::contract {
namespace {

using TextTest = ContractTest;

// For short texts. Empty where the conversion fails. The size that is asked for first is the size
// that is then used.
std::string Narrow(std::u16string_view wide, std::uint32_t flags, std::uint32_t page = kCpUtf8,
                   bool* replaced = nullptr) {
  char narrow[40] = {};
  const auto convert = [&](char* to, std::int32_t size) {
    return WideCharToMultiByte(page, flags, wide.data(), static_cast<std::int32_t>(wide.size()), to,
                               size, replaced);
  };
  const std::int32_t size = convert(nullptr, 0);
  EXPECT_EQ(convert(narrow, 40), size);
  return {narrow, static_cast<std::size_t>(size)};
}

std::u16string Widen(std::string_view narrow) {
  char16_t wide[40] = {};
  const auto convert = [&](char16_t* to, std::int32_t size) {
    return MultiByteToWideChar(kCpUtf8, kMbErrInvalidChars, narrow.data(),
                               static_cast<std::int32_t>(narrow.size()), to, size);
  };
  const std::int32_t size = convert(nullptr, 0);
  EXPECT_EQ(convert(wide, 40), size);
  return {wide, static_cast<std::size_t>(size)};
}

TEST_F(TextTest, WellFormedTextIsConvertedBothWays) {
  const struct {
    std::u16string wide;
    std::string narrow;
  } rows[] = {
      {{u'a', 0, 0x7F}, {'a', 0, 0x7F}},
      {u"\x80\u07FF\u0800\uFFFF", "\xC2\x80\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
      {u"\uFEFF\uD7FF\uE000", "\xEF\xBB\xBF\xED\x9F\xBF\xEE\x80\x80"},
      {u"\U00010000\U0010FFFF", "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Narrow(row.wide, kWcErrInvalidChars), row.narrow) << Shown(row.wide);
    EXPECT_EQ(Narrow(row.wide, 0), row.narrow) << Shown(row.wide);
    EXPECT_EQ(Widen(row.narrow), row.wide) << Shown(row.wide);
  }
}

TEST_F(TextTest, IllFormedTextIsRefusedOrReplaced) {
  for (const std::string text :
       {"\x80", "\xBF", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3(", "\xE0\x9F\xBF", "\xE2\x82",
        "\xED\xA0\x80", "\xED\xBF\xBF", "\xF0\x8F\xBF\xBF", "\xF0\x9F\x98", "\xF4\x90\x80\x80",
        "\xF5\x80\x80\x80", "\xFE", "\xFF"}) {
    for (const std::string& whole : {text, 'a' + text + 'b'}) {
      SetLastError(0);
      EXPECT_EQ(Widen(whole), u"") << testing::PrintToString(whole);
      EXPECT_EQ(GetLastError(), kErrorNoUnicodeTranslation);
    }
  }
  for (const char16_t surrogate : {u'\xD800', u'\xDBFF', u'\xDC00', u'\xDFFF'}) {
    const std::u16string text{u'a', surrogate, u'b'};
    SetLastError(0);
    EXPECT_EQ(Narrow(text, kWcErrInvalidChars), "") << Shown(text);
    EXPECT_EQ(GetLastError(), kErrorNoUnicodeTranslation);
    EXPECT_EQ(Narrow(text, 0), "a\xEF\xBF\xBD\x62") << Shown(text);
  }
}

TEST_F(TextTest, ASingleByteCodePageReportsWhatItCannotExpress) {
  EXPECT_TRUE(AreFileApisANSI());
  EXPECT_EQ(lc_codepage_func(), 0u);
  bool replaced = true;
  EXPECT_EQ(Narrow(u"\u00E9\u20AC\u0178~", kWcNoBestFitChars, 1252, &replaced), "\xE9\x80\x9F~");
  EXPECT_FALSE(replaced);
  // Without similar Latin letters.
  EXPECT_EQ(Narrow(u"a\u0142\u65E5\U0001F600", kWcNoBestFitChars, 1252, &replaced), "a????");
  EXPECT_TRUE(replaced);
}

TEST_F(TextTest, EveryUnitHasTheLowerCaseOfTheTable) {
  constexpr std::int32_t kUnits = 0x10000;
  std::u16string units(kUnits, 0), mapped(kUnits, 0);
  for (std::size_t unit = 0; unit < kUnits; ++unit) units[unit] = static_cast<char16_t>(unit);
  EXPECT_EQ(LCMapStringEx(u"", kLcmapLowercase, u"AB", 2, nullptr, 0), 2);
  EXPECT_EQ(LCMapStringEx(u"", kLcmapLowercase, units.data(), kUnits, mapped.data(), kUnits),
            kUnits);
  EXPECT_EQ(CharLowerBuffW(units.data(), kUnits), units.size());
  for (std::uint32_t unit = 0; unit < kUnits; ++unit) {
    EXPECT_EQ(char32_t{mapped[unit]}, simulated::LowerCase(unit)) << std::hex << unit;
    EXPECT_EQ(units[unit], mapped[unit]) << std::hex << unit;
  }
}

template <typename Number>
void ExpectNumbers(Number (*parse)(const char16_t*, const char16_t**)) {
  constexpr Number kLargest = std::numeric_limits<Number>::max();
  const std::string digits = std::to_string(kLargest);
  const std::u16string largest(digits.begin(), digits.end());
  const struct {
    std::u16string number, rest;
    Number value;
    bool overflow = false;
  } rows[] = {{u"0123", u"abc", 123},
              {u"0", u"x10", 0},
              {u"\t\n\v\f\r +7", u" ", 7},
              {u"", u" -", 0},
              {u"", u"+-1", 0},
              {u"1\u0662\uFF13", u"", 123},
              {u"\u00A0\u30004", u"", 4},
              {largest, u"", kLargest},
              {u"-1", u"", kLargest},
              {largest + u"0", u"x", 0, true},
              {u"-" + largest + u"0", u"", 0, true}};
  for (const auto& row : rows) {
    const std::u16string text = row.number + row.rest;
    const char16_t* end = nullptr;
    errno = 0;
    const Number value = parse(text.c_str(), &end);
    EXPECT_EQ(end, text.c_str() + row.number.size()) << Shown(text);
    EXPECT_EQ(errno, row.overflow ? ERANGE : 0) << Shown(text);
    // Runtimes return different values where there is an error.
    EXPECT_TRUE(row.overflow || value == row.value) << Shown(text) << " is " << value;
  }
}

TEST_F(TextTest, ANumberEndsBehindItsLastDigit) {
  ExpectNumbers(wcstoul);
  ExpectNumbers(wcstoull);
}

TEST_F(TextTest, CommandLinesAreSplitByTheRulesOfTheShell) {
  using Arguments = std::vector<std::u16string>;
  const struct {
    std::u16string line;
    Arguments arguments;
  } rows[] = {
      {u"\"C:\\a b\\c.exe\"  \"one two\"\tthree ", {u"C:\\a b\\c.exe", u"one two", u"three"}},
      {u"\"a\\\" \\\"b", {u"a\\", u"\"b"}},
      {u"a \"\" b \"\"", {u"a", u"", u"b", u""}},
      {u"a \"line\none\r\n\ttwo\" x\ny", {u"a", u"line\none\r\n\ttwo", u"x\ny"}},
      {u"a \\\\\\\"b \\\\\\\\\"c d\"", {u"a", u"\\\"b", u"\\\\c d"}},
      {u"a b\"c d\"e \"f g", {u"a", u"bc de", u"f g"}},
      {u"a \"\"\"b c\"\"\" d", {u"a", u"\"b", u"c\"", u"d"}},
  };
  for (const auto& row : rows) {
    std::int32_t count = 0;
    char16_t** const split = CommandLineToArgvW(row.line.c_str(), &count);
    EXPECT_EQ(Arguments(split, split + count), row.arguments) << Shown(row.line);
    LocalFree(split);
  }
}

TEST_F(TextTest, TheSystemHasMessagesAndALanguage) {
  constexpr std::uint32_t kFlags =
      kFormatMessageAllocateBuffer | kFormatMessageIgnoreInserts | kFormatMessageFromSystem;
  for (const std::uint32_t code : {2u, 3u, 5u, 29u, 32u, 112u, 183u, 1113u, 0x2FFFFFFFu}) {
    char* text = nullptr;
    const std::uint32_t length = FormatMessageA(kFlags, code, 0, &text);
    EXPECT_EQ(Code(length > 2), code == 0x2FFFFFFF ? 317 : 0);
    EXPECT_TRUE(length == 0 || std::string_view(text).ends_with("\r\n")) << text;
    LocalFree(text);
  }
  std::uint32_t language = 0;
  const bool known = GetLocaleInfoEx(u"!x-sys-default-locale",
                                     kLocaleReturnNumber | kLocaleIlanguage, &language) > 0;
  EXPECT_BUT_ON_WINE(kWine8, Code(known), 0u, kErrorInvalidParameter);
  EXPECT_EQ(language != 0, known) << language;
}

}  // namespace
}  // namespace tolvarine::updater::contract
