// Other processes, named mutexes, and the end of this process.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

inline constexpr std::uint32_t kProcessQueryLimitedInformation = 0x1000;
inline constexpr std::uint32_t kSynchronize = 0x100000;

// The handle is not inherited; kNullHandle on failure, with code 87 if no process has the id.
Handle OpenProcess(std::uint32_t access, std::uint32_t process_id);

// File times: 100-nanosecond counts from 1601-01-01 UTC.
bool GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                     std::uint64_t* kernel, std::uint64_t* user);

// Creates or opens a mutex by name; kNullHandle on failure.
Handle CreateMutexW(bool initial_owner, const char16_t* name);
bool ReleaseMutex(Handle mutex);

// A pseudo handle for this process. It cannot fail and need not be closed.
Handle GetCurrentProcess();

// Ends the process at once, without destructors or a message box.
bool TerminateProcess(Handle process, std::uint32_t exit_code);

}  // namespace tolvarine::updater::platform
