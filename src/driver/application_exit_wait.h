// Waits until the application that started the updater has ended. A process is identified by its id
// and its creation time, since ids are reused. If it cannot be inspected, the update must not
// continue.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater {

enum class ProcessWaitResult : std::int32_t {
  Exited = 0,           // The process was found and ended within the timeout.
  NotRunning = 1,       // No process has this id.
  IdentityChanged = 2,  // The id belongs to a process with another creation time.
  TimedOut = 3,         // The process still ran at the end of the timeout.
  OpenFailed = 4,       // It exists, or may exist, but could not be opened.
  QueryFailed = 5,      // Its creation time could not be read.
  WaitFailed = 6,       // The wait returned neither success nor timeout.
};

// True if the application is known to have ended: for the first three results.
[[nodiscard]] bool IsProcessWaitSafe(ProcessWaitResult result);

// The platform calls of the wait. `error` receives the Win32 code of a call that failed, otherwise
// 0. A timeout is not a failure.
class ProcessWaitApi {
 public:
  virtual ~ProcessWaitApi() = default;
  // Returns null on failure; the code is 87 if no process has this id.
  [[nodiscard]] virtual platform::Handle OpenProcessHandle(std::uint32_t process_id,
                                                           std::uint32_t access,
                                                           std::uint32_t& error) = 0;
  // Returns false on failure; otherwise `creation_time` is a raw file time.
  [[nodiscard]] virtual bool GetProcessCreationTime(platform::Handle process,
                                                    std::uint64_t& creation_time,
                                                    std::uint32_t& error) = 0;
  // Waits at most `timeout` milliseconds. Returns the platform's wait result (platform/handles.h).
  [[nodiscard]] virtual std::uint32_t WaitForProcess(platform::Handle process,
                                                     std::uint32_t timeout,
                                                     std::uint32_t& error) = 0;
  virtual void CloseProcessHandle(platform::Handle process) = 0;
};

// Waits at most `timeout` milliseconds for the end of the process that has this id and exactly this
// creation time (a raw file time).
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

// The same through `api`. Closes the process handle in every case.
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(ProcessWaitApi& api,
                                                       std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

}  // namespace tolvarine::updater
