// Waiting for the application that started the updater to end. A process is identified by its id
// and its creation time, since ids are reused; where it cannot be inspected, the answer is that the
// update may not go on.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater {

enum class ProcessWaitResult : std::int32_t {
  Exited = 0,           // The process was found and has ended in time.
  NotRunning = 1,       // No process has this id.
  IdentityChanged = 2,  // The id belongs to a process with another creation time.
  TimedOut = 3,         // The right process still ran when the time was up.
  OpenFailed = 4,       // It exists, or may exist, but could not be opened.
  QueryFailed = 5,      // Its creation time could not be read.
  WaitFailed = 6,       // The wait ended with anything but success or timeout.
};

// True when the application is known to have gone: for the first three.
[[nodiscard]] bool IsProcessWaitSafe(ProcessWaitResult result);

// What the wait asks of the platform. `error` receives the Win32 code of a call that failed, 0
// otherwise; a wait that times out has not failed.
class ProcessWaitApi {
 public:
  virtual ~ProcessWaitApi() = default;
  // Null on failure, with 87 for an id that names no process.
  [[nodiscard]] virtual platform::Handle OpenProcessHandle(std::uint32_t process_id,
                                                           std::uint32_t access,
                                                           std::uint32_t& error) = 0;
  // A raw file time; not to be read where the answer is false.
  [[nodiscard]] virtual bool GetProcessCreationTime(platform::Handle process,
                                                    std::uint64_t& creation_time,
                                                    std::uint32_t& error) = 0;
  // For at most `timeout` milliseconds. The platform's wait result as it came (platform/handles.h).
  [[nodiscard]] virtual std::uint32_t WaitForProcess(platform::Handle process,
                                                     std::uint32_t timeout,
                                                     std::uint32_t& error) = 0;
  virtual void CloseProcessHandle(platform::Handle process) = 0;
};

// Waits for the process with this id and exactly this creation time (a raw file time) to end, for
// at most `timeout` milliseconds.
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

// The same through `api`; what was opened is closed on every way out.
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(ProcessWaitApi& api,
                                                       std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

}  // namespace tolvarine::updater
