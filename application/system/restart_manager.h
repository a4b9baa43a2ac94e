// The restart manager of rstrtmgr.dll: which programs have files open. Its functions return a Win32
// code, 0 on success, and leave none in GetLastError().

#pragma once

#include <cstdint>
#include <string>

namespace tolvarine::updater::platform {

// What RmGetList returns where there is more than fits.
inline constexpr std::uint32_t kErrorMoreData = 234;

// Begins a session, whose key is not kept. A user has 64 at most.
std::uint32_t RmStartSession(std::uint32_t* session);

// Adds files, by full path, to those that the session asks about. A directory is accepted here and
// makes RmGetList fail with 5.
std::uint32_t RmRegisterResources(std::uint32_t session, const char16_t* const* files,
                                  std::uint32_t count);

// Of RM_PROCESS_INFO, what the program reads.
struct RmProcessInfo {
  std::uint32_t process_id = 0;
  std::uint64_t process_start_time = 0;  // The process's creation time.
  std::u16string application_name;       // As a person knows it; may be empty.
};

// The programs that have one of the files open. `*count` is the room in `processes`, and afterwards
// the number of elements filled; `*needed` is the number that there is. Programs of other users,
// and drivers, may be missing.
std::uint32_t RmGetList(std::uint32_t session, std::uint32_t* needed, std::uint32_t* count,
                        RmProcessInfo* processes);

std::uint32_t RmEndSession(std::uint32_t session);

}  // namespace tolvarine::updater::platform
