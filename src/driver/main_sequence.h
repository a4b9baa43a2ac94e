// The main sequence, from the command line to the exit code: parse, validate, lock, wait, run the
// transaction, publish its markers, restart the application. Retries nothing. Before the
// transaction it changes no file except the update log.
//
// This module alone decides which failure gets which message, box and exit code, what a second
// updater does, and in which order a success is published.

#pragma once

#include <cstdint>

namespace tolvarine::updater {

// The exit codes. 1 is never used. "Nothing changed": no file, except a record in the update log.
enum class ExitCode : std::int32_t {
  Done = 0,                // Installed and restarted; also: another updater holds the lock.
  InvalidArguments = 2,    // The command line was refused. Nothing changed.
  InvalidRequest = 3,      // A path was refused, or the lock failed. Nothing changed.
  ApplicationRunning = 4,  // The application runs, or its end is not proven. Nothing changed.
  UpdateFailed = 5,        // The transaction did not end in Committed.
  RestartFailed = 6,       // Installed, cleanup complete or not; the application was not started.
  CleanupDeferred = 7,     // Installed and restarted; the application finishes the cleanup.
};

// Runs the main sequence for this process and returns the exit code. Throws std::bad_alloc and
// other exceptions that the layers below do not turn into results; the next run resumes a
// transaction that was interrupted so.
[[nodiscard]] std::int32_t RunUpdater();

}  // namespace tolvarine::updater
