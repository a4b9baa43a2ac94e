// The processes of the machine: what runs, from which file, in which job, with which rights, and
// the start of another one. GetCurrentProcess, OpenProcess and GetProcessTimes are in
// platform/processes.h.

#pragma once

#include <cstdint>

#include "platform/handles.h"
#include "platform/processes.h"

namespace tolvarine::updater::platform {

// Cannot fail.
std::uint32_t GetCurrentProcessId();

// The ids of all processes. `capacity` and `*count` count ids; `*count` equal to `capacity` means
// that there may be more.
bool K32EnumProcesses(std::uint32_t* ids, std::uint32_t capacity, std::uint32_t* count);

// The full path of a process's program, by drive. Takes kProcessQueryLimitedInformation. `*size` is
// the buffer's size in units, and afterwards the length without the zero unit; too small a buffer
// gives 122.
bool QueryFullProcessImageNameW(Handle process, char16_t* buffer, std::uint32_t* size);

// Flags of CreateProcessW.
inline constexpr std::uint32_t kDetachedProcess = 0x8;
inline constexpr std::uint32_t kCreateBreakawayFromJob = 0x01000000;
inline constexpr std::uint32_t kCreateNoWindow = 0x08000000;

// Both handles are the caller's to close.
struct ProcessInformation {
  Handle process = kNullHandle;
  Handle thread = kNullHandle;
  std::uint32_t process_id = 0;
  std::uint32_t thread_id = 0;
};

// Starts a program with no inherited and no standard handles, this process's environment and
// otherwise the default start-up information. `application` is its full path. The system may write
// to the command line.
// A null directory is this process's own. kCreateBreakawayFromJob gives 5 where the job of this
// process forbids it.
bool CreateProcessW(const char16_t* application, char16_t* command_line, std::uint32_t flags,
                    const char16_t* current_directory, ProcessInformation* information);

// Whether the process belongs to any job.
bool IsProcessInJob(Handle process, bool* in_job);

// Limits of a job.
inline constexpr std::uint32_t kJobObjectLimitBreakawayOk = 0x800;
inline constexpr std::uint32_t kJobObjectLimitSilentBreakawayOk = 0x1000;
inline constexpr std::uint32_t kJobObjectLimitKillOnJobClose = 0x2000;

// The limit flags of this process's job, by class JobObjectExtendedLimitInformation. Fails where
// the process is in none.
bool QueryInformationJobObject(std::uint32_t* limit_flags);

// With TOKEN_QUERY. The token is closed with CloseHandle.
bool OpenProcessToken(Handle process, Handle* token);

// The class of GetTokenInformation that the program reads, by its structure.
struct TokenElevation {  // Class 20.
  bool is_elevated = false;
};

bool GetTokenInformation(Handle token, TokenElevation* elevation);

}  // namespace tolvarine::updater::platform
