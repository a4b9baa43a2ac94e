// Hexadecimal text: the form of paths, messages and digests in the lists and in the journal.

#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

namespace tolvarine::updater {

// Two lower-case digits for each byte, high nibble first.
[[nodiscard]] std::string EncodeHex(std::string_view bytes);
void AppendHex(std::string& text, std::string_view bytes);

// The bytes that pairs of digits spell, in either case; nothing for an odd length or any other
// character. An empty text gives empty bytes.
[[nodiscard]] std::optional<std::string> DecodeHex(std::string_view text);

inline constexpr std::size_t kSha256DigitCount = 64;

// True for exactly 64 units of 0-9 and a-f: the only accepted spelling of a digest and of an
// identifier.
template <typename Unit>
[[nodiscard]] bool IsLowerHex64(std::basic_string_view<Unit> text) {
  const auto lower_digit = [](Unit unit) {
    return (unit >= Unit{'0'} && unit <= Unit{'9'}) || (unit >= Unit{'a'} && unit <= Unit{'f'});
  };
  return text.size() == kSha256DigitCount && std::ranges::all_of(text, lower_digit);
}

}  // namespace tolvarine::updater
