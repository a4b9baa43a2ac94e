// What every kind of platform object has in common: the handle that names it, how it is closed,
// how it is waited for, and the calling thread's last error.
//
// The headers of this folder declare what the program asks of Windows, call by call and under
// Windows' own names. They leave out the arguments that are always the same (a null security
// descriptor, a null template, no overlapped structure) and use 16-bit text as char16_t and plain
// fixed-width numbers. Two implementations are bound at link time: `windows/` forwards each call to
// the system, `simulated/` is an in-memory Windows. Nothing here retries, maps or decides.
//
// Every call that reports failure leaves its Win32 code in GetLastError(), unless its own comment
// says otherwise. A call that succeeds may or may not change it.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

// An open file, a find handle, a process or a mutex.
using Handle = std::uintptr_t;

inline constexpr Handle kNullHandle = 0;              // What mutexes and processes fail with.
inline constexpr Handle kInvalidHandle = ~Handle{0};  // INVALID_HANDLE_VALUE: what files fail with.

// The Win32 code that the last failing call of this thread left.
std::uint32_t GetLastError();
void SetLastError(std::uint32_t code);

// Closes a file, a process or a mutex; find handles have FindClose. A file's sharing ends here.
bool CloseHandle(Handle handle);

inline constexpr std::uint32_t kWaitObject0 = 0;
inline constexpr std::uint32_t kWaitAbandoned = 0x80;
inline constexpr std::uint32_t kWaitTimeout = 0x102;
inline constexpr std::uint32_t kWaitFailed = 0xFFFFFFFF;
inline constexpr std::uint32_t kInfinite = 0xFFFFFFFF;

// Waits for a process to end or for a mutex to be free; one of the four values above.
std::uint32_t WaitForSingleObject(Handle handle, std::uint32_t milliseconds);

}  // namespace tolvarine::updater::platform
