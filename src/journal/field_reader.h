// Reads fields that white space separates, as intent and entry lines hold them. White space before
// a field is skipped. A number ends at the first character that is not a digit, a token at the next
// white space.

#pragma once

#include <algorithm>
#include <concepts>
#include <optional>
#include <string_view>

#include "text/decimal.h"

namespace tolvarine::updater {

class FieldReader {
 public:
  explicit FieldReader(std::string_view text) : rest_(text) {}

  // Returns nothing if no digit follows or if the value does not fit; in both cases the digits are
  // consumed. The format has no signs.
  template <std::integral Value>
  [[nodiscard]] std::optional<Value> Number() {
    return ParseDecimal<Value>(Take([](char c) { return c >= '0' && c <= '9'; }));
  }

  // Returns a view into the text, up to the next white space. Returns nothing if only white space
  // is left.
  [[nodiscard]] std::optional<std::string_view> Token() {
    const std::string_view token = Take([](char c) { return !IsSpace(c); });
    if (token.empty()) return std::nullopt;
    return token;
  }

  // True when nothing but white space is left.
  [[nodiscard]] bool AtEnd() const { return std::ranges::all_of(rest_, IsSpace); }

 private:
  static bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

  // Skips white space and consumes the characters that belong to the field.
  template <typename Belongs>
  std::string_view Take(Belongs belongs) {
    rest_.remove_prefix(
        static_cast<std::size_t>(std::ranges::find_if_not(rest_, IsSpace) - rest_.begin()));
    const auto length =
        static_cast<std::size_t>(std::ranges::find_if_not(rest_, belongs) - rest_.begin());
    const std::string_view field = rest_.substr(0, length);
    rest_.remove_prefix(length);
    return field;
  }

  std::string_view rest_;
};

}  // namespace tolvarine::updater
