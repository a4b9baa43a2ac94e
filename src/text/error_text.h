// Handing a failure's words to a caller that may want them.

#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tolvarine::updater {

// Stores the text in `error`, if there is one. Where there is no memory for the words, they stay
// away; what they would tell of stands all the same. Throws nothing.
inline void StoreErrorText(std::string* error, std::string_view text) noexcept {
  if (error == nullptr) return;
  try {
    *error = text;
  } catch (const std::exception&) {
    error->clear();
  }
}

}  // namespace tolvarine::updater
