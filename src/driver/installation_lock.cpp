#include "driver/installation_lock.h"

#include <algorithm>

#include "driver/command_line.h"
#include "platform/processes.h"

namespace tolvarine::updater {
namespace {

constexpr std::u16string_view kNamePrefix = u"Local\\TolvarineUpdater-Installation-";
constexpr std::int64_t kLongestWait = platform::kInfinite - 1;

}  // namespace

std::u16string InstallationMutexName(std::u16string_view install_key) {
  if (!IsInstallationIdentifier(install_key)) return {};
  return std::u16string(kNamePrefix).append(install_key);
}

InstallationLock::InstallationLock(std::u16string_view install_key) {
  const std::u16string name = InstallationMutexName(install_key);
  if (!name.empty()) handle_ = platform::CreateMutexW(/*initial_owner=*/false, name.c_str());
}

LockAcquireResult InstallationLock::Acquire(std::int64_t timeout) {
  if (handle_ == platform::kNullHandle || owned_ || timeout < 0) return LockAcquireResult::Failed;
  const auto wait = static_cast<std::uint32_t>(std::min(timeout, kLongestWait));
  switch (platform::WaitForSingleObject(handle_, wait)) {
    case platform::kWaitObject0:
    case platform::kWaitAbandoned:
      owned_ = true;
      return LockAcquireResult::Acquired;
    case platform::kWaitTimeout:
      return LockAcquireResult::TimedOut;
    default:
      return LockAcquireResult::Failed;
  }
}

void InstallationLock::Release() {
  if (handle_ == platform::kNullHandle) return;
  if (owned_) platform::ReleaseMutex(handle_);
  owned_ = false;
  platform::CloseHandle(handle_);
  handle_ = platform::kNullHandle;
}

}  // namespace tolvarine::updater
