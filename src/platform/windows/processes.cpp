#include "platform/processes.h"

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

static_assert(kProcessQueryLimitedInformation == PROCESS_QUERY_LIMITED_INFORMATION);
static_assert(kSynchronize == SYNCHRONIZE);

namespace {

std::uint64_t Joined(const FILETIME& time) {
  return std::uint64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace

Handle OpenProcess(std::uint32_t access, std::uint32_t process_id) {
  return FromNative(::OpenProcess(access, /*bInheritHandle=*/FALSE, process_id));
}

bool GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                     std::uint64_t* kernel, std::uint64_t* user) {
  FILETIME native_creation = {};
  FILETIME native_exit = {};
  FILETIME native_kernel = {};
  FILETIME native_user = {};
  const BOOL done = ::GetProcessTimes(Native(process), &native_creation, &native_exit,
                                      &native_kernel, &native_user);
  *creation = Joined(native_creation);
  *exit = Joined(native_exit);
  *kernel = Joined(native_kernel);
  *user = Joined(native_user);
  return done != FALSE;
}

Handle CreateMutexW(bool initial_owner, const char16_t* name) {
  return FromNative(
      ::CreateMutexW(/*lpMutexAttributes=*/nullptr, initial_owner ? TRUE : FALSE, Wide(name)));
}

bool ReleaseMutex(Handle mutex) { return ::ReleaseMutex(Native(mutex)) != FALSE; }

Handle GetCurrentProcess() { return FromNative(::GetCurrentProcess()); }

bool TerminateProcess(Handle process, std::uint32_t exit_code) {
  return ::TerminateProcess(Native(process), exit_code) != FALSE;
}

}  // namespace tolvarine::updater::platform
