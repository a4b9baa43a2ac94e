// The last error, and the closing of every handle but those of searches.

#include "platform/handles.h"

#include "simulated_windows/call_failure.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;

std::uint32_t GetLastError() { return Computer::Current().last_error; }

void SetLastError(std::uint32_t code) { Computer::Current().last_error = code; }

bool CloseHandle(Handle handle) {
  Computer& computer = Computer::Current();
  const simulated::OpenFile* file = computer.files().Find(handle);
  const simulated::Fault* fault =
      computer.calls.Enter(Call::CloseHandle, file == nullptr ? std::u16string_view() : file->path);
  if (computer.calls.power_is_off()) return false;
  // The handle is closed even where a fault makes the call fail.
  const bool closed = computer.files().Close(handle) || computer.objects().Close(handle);
  if (fault != nullptr) return simulated::FailCall(fault->code, false);
  if (!closed) return simulated::FailCall(simulated::kErrorInvalidHandle, false);
  return true;
}

}  // namespace tolvarine::updater::platform
