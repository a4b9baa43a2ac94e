// Handles of all kinds: closing them, waiting for them, and the calling thread's last error.
//
// The headers of this folder declare the Windows calls that the program makes, under their own
// names. They leave out arguments that are always the same (a null security descriptor, a null
// template, no overlapped structure) and use char16_t for text and integers of fixed width. One of
// two implementations is linked: `windows/` forwards each call to the system, and
// testbed/simulated_windows is an in-memory Windows.
//
// A call that reports failure leaves its Win32 code in GetLastError(), unless its comment says
// otherwise. A call that succeeds may change it.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

// An open file, a find handle, a process or a mutex.
using Handle = std::uintptr_t;

// The results of calls that fail: of those for mutexes and processes, and of those for files and
// searches (INVALID_HANDLE_VALUE).
inline constexpr Handle kNullHandle = 0;
inline constexpr Handle kInvalidHandle = ~Handle{0};

// The Win32 code that the last failing call of this thread left.
std::uint32_t GetLastError();
void SetLastError(std::uint32_t code);

// Closes a file, a process or a mutex, and ends a file's share mode. Find handles have FindClose.
bool CloseHandle(Handle handle);

inline constexpr std::uint32_t kWaitObject0 = 0;
inline constexpr std::uint32_t kWaitAbandoned = 0x80;
inline constexpr std::uint32_t kWaitTimeout = 0x102;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

// Waits for a process to end or for a mutex to be free. Returns one of the first four values.
std::uint32_t WaitForSingleObject(Handle handle, std::uint32_t milliseconds);

}  // namespace tolvarine::updater::platform
