// The registration of an installation's resumer, so that it runs at each logon of the user: a value
// under the user's Run key, whose name holds the beginning of the installation's key and whose text
// is the quoted path of the resumer.

#pragma once

#include <cstddef>

#include "state/state_directory.h"

namespace tolvarine::updater::application {

// Windows runs no longer text of a Run value. In units, without the final zero.
inline constexpr std::size_t kRunTextLimit = 260;

// The text that is registered for a resumer.
[[nodiscard]] std::u16string RunTextOf(const Path& resumer);

// Sets the value and flushes the key; on return a power cut finds it there. A value that is there
// already is flushed too. Throws SystemError; the value is then the old or the new one.
void RegisterResumer(const Installation& installation, const Path& resumer);

// Removes the value and flushes the key. One that is missing is success. Throws SystemError.
void UnregisterResumer(const Installation& installation);

}  // namespace tolvarine::updater::application
