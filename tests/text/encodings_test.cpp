// Hexadecimal text, decimal numbers and FNV-1a.

#include <gtest/gtest.h>

#include "text/decimal.h"
#include "text/fnv1a.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

TEST(Hex, BytesAndPairsOfDigitsAreOneAnother) {
  std::string digits;
  for (int byte = 0; byte < 256; ++byte) {
    const std::string text(1, static_cast<char>(byte));
    EXPECT_EQ(DecodeHex(EncodeHex(text)), text);
    EXPECT_EQ(DecodeHex(text + "0").has_value(), DecodeHex("0" + text).has_value());
    if (DecodeHex(text + "0")) digits += text;
  }
  EXPECT_EQ(digits, "0123456789ABCDEFabcdef");
  EXPECT_EQ(EncodeHex({"\x00\x0f\xa5\xff", 4}), "000fa5ff");
  EXPECT_EQ(DecodeHex("aAfF"), "\xaa\xff");
  EXPECT_EQ(DecodeHex("abc"), std::nullopt);
}

TEST(Hex, ADigestHasOneSpelling) {
  const std::u16string digest(63, u'a');
  std::u16string last;
  for (char16_t unit = 0; unit < 0x200; ++unit) {
    if (IsLowerHex64(std::u16string_view(digest + unit))) last.push_back(unit);
  }
  EXPECT_EQ(last, u"0123456789abcdef");
  EXPECT_FALSE(IsLowerHex64(std::u16string_view(digest)));
  EXPECT_FALSE(IsLowerHex64(std::u16string_view(digest + u"00")));
}

TEST(Decimal, DigitsAloneThatFitAreReadAndWritten) {
  std::string text;
  AppendDecimal(text, ~std::uint64_t{0});
  AppendDecimal(text, std::numeric_limits<std::int64_t>::min());
  EXPECT_EQ(text, "18446744073709551615-9223372036854775808");
  EXPECT_EQ(ParseDecimal<std::uint64_t>("0018446744073709551615"), ~std::uint64_t{0});
  EXPECT_EQ(ParseDecimal<std::int32_t>("2147483647"), 2147483647);
  EXPECT_EQ(ParseDecimal<std::int32_t>("2147483648"), std::nullopt);
  for (const std::string_view refused : {"", "+1", "-1", " 1", "1 ", "0x1"}) {
    EXPECT_EQ(ParseDecimal<std::int64_t>(refused), std::nullopt) << '"' << refused << '"';
  }
  EXPECT_EQ(ParseDecimal<std::uint64_t>("18446744073709551616"), std::nullopt);
}

TEST(Fnv1a, KnownTextsHaveTheirKnownHashes) {
  EXPECT_EQ(Fnv1a64(""), 0xcbf29ce484222325u);
  EXPECT_EQ(Fnv1a64("\xff"), 0xaf64724c8602eb6eu);  // Bytes are unsigned.
  EXPECT_EQ(Fnv1a64("bar", Fnv1a64("foo")), 0x85944171f73967e8u);
}

}  // namespace
}  // namespace tolvarine::updater
