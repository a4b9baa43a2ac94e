// Processes, mutexes and waiting. KernelObjects does the work of the calls.

#include "platform/processes.h"

#include "platform/handles.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;

Handle OpenProcess(std::uint32_t access, std::uint32_t process_id) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::OpenProcess)) {
    return FailCall(fault->code, kNullHandle);
  }
  return Computer::Current().objects().OpenProcess(access, process_id);
}

bool GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                     std::uint64_t* kernel, std::uint64_t* user) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetProcessTimes)) {
    return FailCall(fault->code, false);
  }
  return Computer::Current().objects().GetProcessTimes(process, creation, exit, kernel, user);
}

std::uint32_t WaitForSingleObject(Handle handle, std::uint32_t milliseconds) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::WaitForSingleObject)) {
    return FailCall(fault->code, kWaitFailed);
  }
  return Computer::Current().objects().Wait(handle, milliseconds);
}

Handle CreateMutexW(bool initial_owner, const char16_t* name) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::CreateMutexW)) {
    return FailCall(fault->code, kNullHandle);
  }
  return Computer::Current().objects().CreateMutex(initial_owner, name == nullptr ? u"" : name);
}

bool ReleaseMutex(Handle mutex) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::ReleaseMutex)) {
    return FailCall(fault->code, false);
  }
  return Computer::Current().objects().ReleaseMutex(mutex);
}

// On Windows, too, a fixed number that needs no closing.
Handle GetCurrentProcess() { return ~Handle{0}; }

bool TerminateProcess(Handle process, std::uint32_t exit_code) {
  return Computer::Current().objects().TerminateProcess(process, exit_code);
}

}  // namespace tolvarine::updater::platform
