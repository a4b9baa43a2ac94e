// Plain decimal numbers: no padding, no grouping, no locale.

#pragma once

#include <charconv>
#include <concepts>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace tolvarine::updater {

// Appends the shortest form, with a minus for a negative number.
template <std::integral Number>
void AppendDecimal(std::string& text, Number number) {
  char digits[std::numeric_limits<Number>::digits10 + 3];
  const auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
  text.append(digits, end);
}

// The value of a text of digits alone, at least one, that fits `Number`. Leading zeros pass; a sign
// does not, even for a signed `Number`.
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
