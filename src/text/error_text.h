// Storing the text of a failure for a caller that asked for it.

#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace tolvarine::updater {

// Stores the text in `error`, unless that is null. If memory is exhausted, `error` becomes empty:
// the caller has reported the failure itself by other means. Throws nothing.
inline void StoreErrorText(std::string* error, std::string_view text) noexcept {
  if (error == nullptr) return;
  try {
    *error = text;
  } catch (const std::exception&) {
    error->clear();
  }
}

}  // namespace tolvarine::updater
