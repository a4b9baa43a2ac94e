// The calls of the seam by name, for injected faults, traces and actions between two calls. Those
// that cannot fail (GetLastError, GetCommandLineW and the like) are not listed and not counted.

#pragma once

#include <cstddef>
#include <string_view>

namespace tolvarine::updater::simulated {

// clang-format would put each entry on a line of its own, each indented further than the last.
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
  X(FormatMessageA) X(GetLocaleInfoEx) X(GetTimeZoneInformation) X(GetLocalTime) \
  X(BCryptImportKeyPair) X(BCryptVerifySignature) X(BCryptDestroyKey) X(GetDiskFreeSpaceExW) \
  X(GetVolumePathNameW) X(GetVolumeInformationW) X(K32EnumProcesses) \
  X(QueryFullProcessImageNameW) X(CreateProcessW) X(IsProcessInJob) \
  X(QueryInformationJobObject) X(OpenProcessToken) X(GetTokenInformation) X(RmStartSession) \
  X(RmRegisterResources) X(RmGetList) X(RmEndSession) X(GetExitCodeProcess) \
  X(RegCreateKeyExW) X(RegGetValueW) X(RegSetValueExW) X(RegDeleteValueW) X(RegFlushKey) \
  X(RegCloseKey)
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

// Whether the call closes or releases something. Destructors make these calls, so that they never
// throw: when the power is cut at one of them, it fails silently.
bool IsRelease(Call call);

}  // namespace tolvarine::updater::simulated
