#include "update/caller.h"

#include "files/unique_handle.h"
#include "platform/processes.h"
#include "system/processes.h"

namespace tolvarine::updater::application {

std::optional<Reason> RefusalOfCaller() {
  platform::Handle token = platform::kNullHandle;
  if (!platform::OpenProcessToken(platform::GetCurrentProcess(), &token)) return std::nullopt;
  const UniqueHandle<platform::CloseHandle, platform::kNullHandle> owner(token);
  platform::TokenElevation elevation;
  if (!platform::GetTokenInformation(token, &elevation) || !elevation.is_elevated) {
    return std::nullopt;
  }
  return Reason{ReasonCode::ElevatedCaller,
                "This process has an administrator's rights. Only installations of one user, in a "
                "place that the user can write to, are updated: start the application without "
                "these rights."};
}

}  // namespace tolvarine::updater::application
