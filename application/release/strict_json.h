// JSON from outside, read strictly.

#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace tolvarine::updater::application {

struct JsonLimits {
  std::size_t depth = 0;   // How deep arrays and objects may be nested.
  std::size_t values = 0;  // Of any kind, arrays and objects included; bounds the memory.
};

// The value that a UTF-8 text of JSON spells. Throws std::runtime_error, with a sentence of
// well-formed UTF-8 that says what is wrong, for anything that is not JSON (RFC 8259) or not UTF-8,
// for a name that occurs twice in one object, for what is beyond the limits, and for numbers that
// are negative, fractional or above 2^53 (beyond which readers in other languages round).
[[nodiscard]] nlohmann::json ParseStrictJson(std::string_view text, JsonLimits limits);

}  // namespace tolvarine::updater::application
