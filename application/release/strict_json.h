// JSON from outside, read strictly.

#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

namespace tolvarine::updater::application {

// The value that a UTF-8 text of JSON spells. Throws std::runtime_error, with a sentence that says
// what is wrong and where, for anything that is not JSON (RFC 8259) or not UTF-8, for a name that
// occurs twice in one object, for arrays and objects nested more than `depth_limit` deep, and for
// numbers that are negative, fractional or above 2^53 (beyond which readers in other languages
// round).
[[nodiscard]] nlohmann::json ParseStrictJson(std::string_view text, std::size_t depth_limit);

}  // namespace tolvarine::updater::application
