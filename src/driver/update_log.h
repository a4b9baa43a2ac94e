// The update log: "log.txt" in the target, where the driver's failures and warnings are recorded.
//
// UTF-8 without a byte-order mark; one record a line, lines ended by carriage return and line feed.
// A record is the local time and its offset from UTC, the level, the program and the message:
//
//     [2026-03-01 14:05:09.042 +01:00] [ERROR] [Updater] Could not create the update transaction lock.
//
// Within a message a carriage return stands as the two characters \r, a line feed as \n. A
// backslash is not doubled, so this cannot be undone.
//
// The log is never a cause of failure: a record that cannot be written is dropped without a word,
// and one that is written short, as on a full disk, stays cut off; the next follows on the same
// line. It is not flushed.

#pragma once

#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

inline constexpr std::u16string_view kLogError = u"ERROR";
inline constexpr std::u16string_view kLogWarning = u"WARNING";

// The log's path, one for the process. The main sequence sets it once the request is accepted;
// while it is empty nothing is written.
[[nodiscard]] Path& UpdateLogPath();

// Appends one record with a single write, and makes the file, but not its directory, if it is
// missing. The file is open only meanwhile; others may append to it, read it or delete it. `level`,
// one of the two above, goes in as it stands. Throws nothing.
void WriteUpdateLog(std::u16string_view level, std::u16string_view message) noexcept;

}  // namespace tolvarine::updater
