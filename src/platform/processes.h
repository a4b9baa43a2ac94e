// Other processes, named mutexes, and the end of this process.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

inline constexpr std::uint32_t kProcessQueryLimitedInformation = 0x1000;
inline constexpr std::uint32_t kSynchronize = 0x100000;

// The handle is not inherited; null on failure. An id that names no process gives 87.
Handle OpenProcess(std::uint32_t access, std::uint32_t process_id);

// File times: 100-nanosecond counts from 1601-01-01 UTC.
bool GetProcessTimes(Handle process, std::uint64_t* creation, std::uint64_t* exit,
                     std::uint64_t* kernel, std::uint64_t* user);

// Creates or opens a mutex by name; null on failure.
Handle CreateMutexW(bool initial_owner, const char16_t* name);
bool ReleaseMutex(Handle mutex);

// A stand-in for this process's handle; it cannot fail and is not closed.
Handle GetCurrentProcess();

// Ends the process at once: no destructor runs, no box appears.
bool TerminateProcess(Handle process, std::uint32_t exit_code);

}  // namespace tolvarine::updater::platform
