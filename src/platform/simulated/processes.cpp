// Processes, mutexes and waiting: the calls, over the objects of the current world.

#include "platform/processes.h"

#include "platform/handles.h"
#include "platform/simulated/answers.h"
#include "platform/simulated/objects.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Fail;
using simulated::Fault;
using simulated::World;

Handle OpenProcess(std::uint32_t access, std::uint32_t process_id) {
  if (const Fault* fault = World::Current().Enter(Call::OpenProcess)) {
    return Fail(fault->code, kNullHandle);
  }
  return World::Current().objects().OpenProcess(access, process_id);
}

bool GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                     std::uint64_t* kernel, std::uint64_t* user) {
  if (const Fault* fault = World::Current().Enter(Call::GetProcessTimes)) {
    return Fail(fault->code, false);
  }
  return World::Current().objects().GetProcessTimes(process, creation, exit, kernel, user);
}

std::uint32_t WaitForSingleObject(Handle handle, std::uint32_t milliseconds) {
  if (const Fault* fault = World::Current().Enter(Call::WaitForSingleObject)) {
    return Fail(fault->code, kWaitFailed);
  }
  return World::Current().objects().Wait(handle, milliseconds);
}

Handle CreateMutexW(bool initial_owner, const char16_t* name) {
  if (const Fault* fault = World::Current().Enter(Call::CreateMutexW)) {
    return Fail(fault->code, kNullHandle);
  }
  return World::Current().objects().CreateMutex(initial_owner, name == nullptr ? u"" : name);
}

bool ReleaseMutex(Handle mutex) {
  if (const Fault* fault = World::Current().Enter(Call::ReleaseMutex)) {
    return Fail(fault->code, false);
  }
  return World::Current().objects().ReleaseMutex(mutex);
}

// A fixed number on Windows too, which closes nothing and needs no closing.
Handle GetCurrentProcess() { return ~Handle{0}; }

bool TerminateProcess(Handle process, std::uint32_t exit_code) {
  return World::Current().objects().TerminateProcess(process, exit_code);
}

}  // namespace tolvarine::updater::platform
