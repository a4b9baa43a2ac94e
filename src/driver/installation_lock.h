// The lock that keeps two updaters from working on one installation: a named mutex of the logon
// session whose name comes straight from the installation's key. It is held from its acquisition on
// through every box and the restart. If its owner dies, the next updater acquires it.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/handles.h"

namespace tolvarine::updater {

enum class LockAcquireResult : std::int32_t {
  Acquired = 0,
  TimedOut = 1,  // Another owner kept it for the whole time.
  Failed = 2,    // No mutex, already owned, a negative timeout, or the wait failed.
};

// Empty for a key that is no installation identifier.
[[nodiscard]] std::u16string InstallationMutexName(std::u16string_view install_key);

class InstallationLock {
 public:
  // Creates or opens the mutex. A key that is no installation identifier makes none; that shows in
  // Acquire, as a failure does.
  explicit InstallationLock(std::u16string_view install_key);
  InstallationLock(const InstallationLock&) = delete;
  InstallationLock& operator=(const InstallationLock&) = delete;
  ~InstallationLock() { Release(); }

  // One single wait, never an unbounded one: milliseconds, 0xFFFFFFFE at most; 0 polls. A mutex
  // whose owner died counts as acquired. Does not wait where it fails for another reason than the
  // wait.
  [[nodiscard]] LockAcquireResult Acquire(std::int64_t timeout);

  // Gives the mutex up, if it is owned, and closes it; the lock is spent from then on. Whether
  // either call failed is of no consequence: the end of the process does both. Safe to call again.
  void Release();

 private:
  platform::Handle handle_ = platform::kNullHandle;
  bool owned_ = false;
};

}  // namespace tolvarine::updater
