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
  IdentityChanged = 2,  // The id now belongs to another process.
  TimedOut = 3,         // The right process still ran when the time was up.
  OpenFailed = 4,       // It could not be opened, for any reason but a missing one.
  QueryFailed = 5,      // Its creation time could not be read.
  WaitFailed = 6,       // The wait ended with anything but success or timeout.
};

// True when the application is known to have gone: for the first three.
[[nodiscard]] bool IsProcessWaitSafe(ProcessWaitResult result);

// What the wait asks of the platform. `error` receives a Win32 code, 0 on success.
class ProcessWaitApi {
 public:
  virtual ~ProcessWaitApi() = default;
  virtual platform::Handle OpenProcessHandle(std::uint32_t process_id, std::uint32_t access,
                                             std::uint32_t& error) = 0;  // Null on failure.
  virtual bool GetProcessCreationTime(platform::Handle process, std::uint64_t& creation_time,
                                      std::uint32_t& error) = 0;
  // Returns the platform's wait result (platform/handles.h).
  virtual std::uint32_t WaitForProcess(platform::Handle process, std::uint32_t timeout,
                                       std::uint32_t& error) = 0;
  virtual void CloseProcessHandle(platform::Handle process) = 0;
};

// Waits for the process with this id and exactly this creation time (a raw file time) to end, for
// at most `timeout` milliseconds.
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

// The same against another platform.
[[nodiscard]] ProcessWaitResult WaitForApplicationExit(ProcessWaitApi& api,
                                                       std::uint32_t process_id,
                                                       std::uint64_t expected_creation_time,
                                                       std::uint32_t timeout);

}  // namespace tolvarine::updater
