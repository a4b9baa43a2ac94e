// The update log: "log.txt" in the target, where the driver's failures and warnings are recorded.
//
// UTF-8 without a byte-order mark; one record a line, lines ended by carriage return and line feed:
//
//     [2026-03-01 14:05:09.042 +01:00] [ERROR] [Updater] The running application did not …
//
// A line break within a message stands as the two characters \n or \r. The log is never a cause of
// failure: a record that cannot be written is dropped without a word. It is not flushed.

#pragma once

#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

inline constexpr std::u16string_view kLogError = u"ERROR";
inline constexpr std::u16string_view kLogWarning = u"WARNING";

// The log's path, one for the process. While it is empty, as at start, nothing is written.
[[nodiscard]] Path& UpdateLogPath();

// Appends one record with a single write. Raises nothing.
void WriteUpdateLog(std::u16string_view level, std::u16string_view message) noexcept;

}  // namespace tolvarine::updater
