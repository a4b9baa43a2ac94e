// Members of records that this library has written itself.

#pragma once

#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "text/path_algebra.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {

// 16-bit text as a JSON string. Throws SystemError for a lone surrogate.
[[nodiscard]] inline nlohmann::json JsonText(std::u16string_view text) {
  return Utf8FromUtf16(text);
}

// The member `name` of an object as 16-bit text. Throws what `at` and the conversions throw, which
// all derive from std::exception.
[[nodiscard]] inline std::u16string WideMember(const nlohmann::json& object, const char* name) {
  return Utf16FromUtf8(object.at(name).get<std::string>());
}

}  // namespace tolvarine::updater::application
