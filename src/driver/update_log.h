// The update log: "log.txt" in the target, the record of the driver's failures and warnings.
//
// The file is UTF-8 without a byte-order mark. A record is one line, which ends in carriage return
// and line feed: the local time with its offset from UTC, the level, the program and the message.
//
//     [2026-03-01 14:05:09.042 +01:00] [ERROR] [Updater] The running application did not exit …
//
// A carriage return in a message is written as the two characters \r, a line feed as \n.
// Backslashes are not doubled, so the message cannot be restored exactly.
//
// The log never causes a failure. A record that cannot be written is dropped. A record that is
// written only in part, as on a full disk, stays in part, and the next record follows on the same
// line. The file is not flushed.

#pragma once

#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

inline constexpr std::u16string_view kLogError = u"ERROR";
inline constexpr std::u16string_view kLogWarning = u"WARNING";

// The path of the log of this process. The main sequence sets it when the request is accepted.
// While it is empty, nothing is written.
[[nodiscard]] Path& UpdateLogPath();

// Appends one record by a single write. Makes the file if it is missing, but not its directory. The
// file is open only during the call, and other processes may append to it, read it or delete it.
// `level` is one of the two above.
void WriteUpdateLog(std::u16string_view level, std::u16string_view message) noexcept;

}  // namespace tolvarine::updater
