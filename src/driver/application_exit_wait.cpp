#include "driver/application_exit_wait.h"

#include "platform/error_codes.h"
#include "platform/processes.h"

namespace tolvarine::updater {
namespace {

// The least rights that identifying the process and waiting for it need.
constexpr std::uint32_t kAccess =
    platform::kSynchronize | platform::kProcessQueryLimitedInformation;

class WindowsProcessWaitApi final : public ProcessWaitApi {
 public:
  platform::Handle OpenProcessHandle(std::uint32_t process_id, std::uint32_t access,
                                     std::uint32_t& error) override {
    // An earlier call's code must not be taken for that of OpenProcess: 87 would mean "not
    // running".
    platform::SetLastError(0);
    const platform::Handle process = platform::OpenProcess(access, process_id);
    error = process == platform::kNullHandle ? platform::GetLastError() : 0;
    return process;
  }

  bool GetProcessCreationTime(platform::Handle process, std::uint64_t& creation_time,
                              std::uint32_t& error) override {
    std::uint64_t creation = 0;
    std::uint64_t exit = 0;
    std::uint64_t kernel = 0;
    std::uint64_t user = 0;
    if (!platform::GetProcessTimes(process, &creation, &exit, &kernel, &user)) {
      error = platform::GetLastError();
      return false;
    }
    creation_time = creation;
    error = 0;
    return true;
  }

  std::uint32_t WaitForProcess(platform::Handle process, std::uint32_t timeout,
                               std::uint32_t& error) override {
    const std::uint32_t result = platform::WaitForSingleObject(process, timeout);
    error = result == platform::kWaitFailed ? platform::GetLastError() : 0;
    return result;
  }

  void CloseProcessHandle(platform::Handle process) override { platform::CloseHandle(process); }
};

// Closes a process handle through the interface that opened it.
class ProcessGuard {
 public:
  ProcessGuard(ProcessWaitApi& api, platform::Handle process) : api_(api), process_(process) {}
  ProcessGuard(const ProcessGuard&) = delete;
  ProcessGuard& operator=(const ProcessGuard&) = delete;
  ~ProcessGuard() { api_.CloseProcessHandle(process_); }

 private:
  ProcessWaitApi& api_;
  platform::Handle process_;
};

ProcessWaitResult ResultOfWait(std::uint32_t result) {
  if (result == platform::kWaitObject0) return ProcessWaitResult::Exited;
  if (result == platform::kWaitTimeout) return ProcessWaitResult::TimedOut;
  return ProcessWaitResult::WaitFailed;
}

}  // namespace

bool IsProcessWaitSafe(ProcessWaitResult result) {
  return result == ProcessWaitResult::Exited || result == ProcessWaitResult::NotRunning ||
         result == ProcessWaitResult::IdentityChanged;
}

ProcessWaitResult WaitForApplicationExit(std::uint32_t process_id,
                                         std::uint64_t expected_creation_time,
                                         std::uint32_t timeout) {
  WindowsProcessWaitApi api;
  return WaitForApplicationExit(api, process_id, expected_creation_time, timeout);
}

ProcessWaitResult WaitForApplicationExit(ProcessWaitApi& api, std::uint32_t process_id,
                                         std::uint64_t expected_creation_time,
                                         std::uint32_t timeout) {
  std::uint32_t error = 0;
  const platform::Handle process = api.OpenProcessHandle(process_id, kAccess, error);
  if (process == platform::kNullHandle) {
    const bool missing = error == platform::kErrorInvalidParameter;
    return missing ? ProcessWaitResult::NotRunning : ProcessWaitResult::OpenFailed;
  }
  const ProcessGuard guard(api, process);
  std::uint64_t creation_time = 0;
  if (!api.GetProcessCreationTime(process, creation_time, error)) {
    return ProcessWaitResult::QueryFailed;
  }
  if (creation_time != expected_creation_time) return ProcessWaitResult::IdentityChanged;
  return ResultOfWait(api.WaitForProcess(process, timeout, error));
}

}  // namespace tolvarine::updater
