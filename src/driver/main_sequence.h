// The updater's one straight pass, from the command line to the exit code: parse, validate, lock,
// wait, run the transaction, publish its markers, restart the application. Nothing in it is
// retried, and nothing before the transaction changes a file but the update log.
//
// The decisions that are made here and nowhere else: which failure gets which words, which box and
// which exit code; what a second updater does; in what order a success is published.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The exit codes. 1 is never used. "Nothing changed" leaves out a record in the update log.
enum class ExitCode : std::int32_t {
  Done = 0,                // Installed and restarted; also: another updater holds the lock.
  InvalidArguments = 2,    // The command line was refused. Nothing changed.
  InvalidRequest = 3,      // A path was refused, or the lock could not be had. Nothing changed.
  ApplicationRunning = 4,  // The application could not be shown to have ended. Nothing changed.
  UpdateFailed = 5,        // The transaction did not end installed.
  RestartFailed = 6,       // Installed, cleaned up or not, but the application was not started.
  CleanupDeferred = 7,     // Installed and restarted; the application finishes the cleanup.
};

// The whole pass for this process. Returns the exit code. Throws what nothing below turns into a
// result, exhausted memory above all; a transaction that was interrupted is resumed by the next
// run.
[[nodiscard]] std::int32_t RunUpdater();

// Copies a marker through a temporary, which has ".tmp" appended to the destination and replaces a
// stale one. On success the destination holds the whole copy, durably. On failure, of which no code
// tells more, it is as it was. What a failed copy left of the temporary stays until the next
// attempt; after a failed flush or rename it is removed, as far as it can be.
[[nodiscard]] bool CopyMarkerDurably(const Path& source, const Path& destination);

// Each byte as one unit, by signed extension: bytes from 0x80 on are not decoded.
[[nodiscard]] std::u16string WidenBytes(std::string_view text);

}  // namespace tolvarine::updater
