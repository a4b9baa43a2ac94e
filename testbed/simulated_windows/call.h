// The calls of the seam by name, for fault plans, traces and whoever acts between two of them.
// Those that cannot fail (GetLastError, GetCommandLineW and the like) are not listed and not
// counted.

#pragma once

#include <cstddef>
#include <string_view>

namespace tolvarine::updater::simulated {

// The calls, as a list and not as the staircase that the formatter would make of it.
// clang-format off
#define TOLVARINE_SIMULATED_CALLS(X) \
  X(CreateFileW) X(CreateFile2) X(ReadFile) X(WriteFile) X(SetFilePointerEx) X(GetFileSizeEx) \
  X(FlushFileBuffers) X(CloseHandle) X(GetFileInformationByHandle) \
  X(GetFileInformationByHandleEx) X(SetFileInformationByHandle) X(GetFinalPathNameByHandleW) \
  X(GetFileAttributesW) X(GetFileAttributesExW) X(MoveFileExW) X(CopyFileW) X(DeleteFileW) \
  X(CreateDirectoryW) X(FindFirstFileW) X(FindFirstFileExW) X(FindNextFileW) X(FindClose) \
  X(WfsOpen) X(Fread) X(Fwrite) X(Fflush) X(Fclose) X(BCryptOpenAlgorithmProvider) \
  X(BCryptCloseAlgorithmProvider) X(BCryptGetProperty) X(BCryptCreateHash) X(BCryptHashData) \
  X(BCryptFinishHash) X(BCryptDestroyHash) X(OpenProcess) X(GetProcessTimes) \
  X(WaitForSingleObject) X(CreateMutexW) X(ReleaseMutex) X(CommandLineToArgvW) X(MessageBoxW) \
  X(ShellExecuteW) X(WideCharToMultiByte) X(MultiByteToWideChar) X(LCMapStringEx) \
  X(FormatMessageA) X(GetLocaleInfoEx) X(GetTimeZoneInformation) X(GetLocalTime)
// clang-format on

enum class Call {
#define TOLVARINE_ENUMERATOR(name) name,
  TOLVARINE_SIMULATED_CALLS(TOLVARINE_ENUMERATOR)
#undef TOLVARINE_ENUMERATOR
};

#define TOLVARINE_COUNT(name) +1  // NOLINT(bugprone-macro-parentheses): a term of a sum.
inline constexpr std::size_t kCallCount = TOLVARINE_SIMULATED_CALLS(TOLVARINE_COUNT);
#undef TOLVARINE_COUNT

std::string_view CallName(Call call);

// Calls that give something back. They run in destructors, so they never throw, and a power cut
// planned at one of them takes effect silently.
bool IsRelease(Call call);

}  // namespace tolvarine::updater::simulated
