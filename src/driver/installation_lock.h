// The lock that prevents two updaters from working on one installation: a named mutex of the logon
// session, whose name contains the installation's key. Updaters in different logon sessions do not
// exclude each other. If the owner dies, the next updater acquires the mutex.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/handles.h"

namespace tolvarine::updater {

enum class LockAcquireResult : std::int32_t {
  Acquired = 0,
  TimedOut = 1,  // Another process owned it during the whole timeout.
  Failed =
      2,  // There is no mutex, it is already owned, the timeout is negative, or the wait failed.
};

// Returns the name of the mutex, empty if the key is not an installation identifier.
[[nodiscard]] std::u16string InstallationMutexName(std::u16string_view install_key);

class InstallationLock {
 public:
  // Creates or opens the mutex. If that fails, or if the key is not an installation identifier,
  // Acquire returns Failed.
  explicit InstallationLock(std::u16string_view install_key);
  InstallationLock(const InstallationLock&) = delete;
  InstallationLock& operator=(const InstallationLock&) = delete;
  ~InstallationLock() { Release(); }

  // Waits once, for at most `timeout` milliseconds; 0 polls. Longer timeouts are shortened to
  // 0xFFFFFFFE, since 0xFFFFFFFF would wait without limit. A mutex whose owner died is acquired.
  [[nodiscard]] LockAcquireResult Acquire(std::int64_t timeout);

  // Releases the mutex, if it is owned, and closes it. Acquire then returns Failed. Failures are
  // ignored, since the end of the process does both. May be called more than once.
  void Release();

 private:
  platform::Handle handle_ = platform::kNullHandle;
  bool owned_ = false;
};

}  // namespace tolvarine::updater
