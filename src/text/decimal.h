// Decimal numbers without padding, grouping or locale.

#pragma once

#include <charconv>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace tolvarine::updater {

// Appends the shortest form of a number.
template <std::integral Number>
void AppendDecimal(std::string& text, Number number) {
  // `digits10` leaves out the highest digit; the others are for a sign and a spare.
  char digits[std::numeric_limits<Number>::digits10 + 3];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text.append(digits, end);
}

// The value of a text of one or more digits; nothing for any other text and for a value that does
// not fit `Number`. Leading zeros are accepted, a sign is not, even for a signed `Number`.
template <std::integral Number>
[[nodiscard]] std::optional<Number> ParseDecimal(std::string_view text) {
  if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
  Number number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

}  // namespace tolvarine::updater
