#include "system/processes.h"

#include "platform/windows/native.h"

// After the system's header, whose types it needs. The functions are kernel32's own.
#include <psapi.h>

namespace tolvarine::updater::platform {

static_assert(kDetachedProcess == DETACHED_PROCESS);
static_assert(kCreateBreakawayFromJob == CREATE_BREAKAWAY_FROM_JOB);
static_assert(kCreateNoWindow == CREATE_NO_WINDOW);

static_assert(kJobObjectLimitBreakawayOk == JOB_OBJECT_LIMIT_BREAKAWAY_OK);
static_assert(kJobObjectLimitSilentBreakawayOk == JOB_OBJECT_LIMIT_SILENT_BREAKAWAY_OK);
static_assert(kJobObjectLimitKillOnJobClose == JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE);

std::uint32_t GetCurrentProcessId() { return ::GetCurrentProcessId(); }

bool K32EnumProcesses(std::uint32_t* ids, std::uint32_t capacity, std::uint32_t* count) {
  static_assert(sizeof(DWORD) == sizeof *ids);
  DWORD bytes = 0;
  const BOOL done = ::K32EnumProcesses(reinterpret_cast<DWORD*>(ids),
                                       static_cast<DWORD>(capacity * sizeof *ids), &bytes);
  *count = static_cast<std::uint32_t>(bytes / sizeof *ids);
  return done != FALSE;
}

bool QueryFullProcessImageNameW(Handle process, char16_t* buffer, std::uint32_t* size) {
  DWORD length = *size;
  const BOOL done =
      ::QueryFullProcessImageNameW(Native(process), /*dwFlags=*/0, Wide(buffer), &length);
  *size = length;
  return done != FALSE;
}

bool CreateProcessW(const char16_t* application, char16_t* command_line, std::uint32_t flags,
                    const char16_t* current_directory, ProcessInformation* information) {
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  // With none of these handles: some systems duplicate the caller's own without being asked, and
  // whoever reads the caller's output would then wait for the end of both processes.
  startup.dwFlags = STARTF_USESTDHANDLES;
  PROCESS_INFORMATION native = {};
  const BOOL done =
      ::CreateProcessW(Wide(application), Wide(command_line), /*lpProcessAttributes=*/nullptr,
                       /*lpThreadAttributes=*/nullptr, /*bInheritHandles=*/FALSE, flags,
                       /*lpEnvironment=*/nullptr, Wide(current_directory), &startup, &native);
  *information = {FromNative(native.hProcess), FromNative(native.hThread), native.dwProcessId,
                  native.dwThreadId};
  return done != FALSE;
}

bool IsProcessInJob(Handle process, bool* in_job) {
  BOOL native = FALSE;
  const BOOL done = ::IsProcessInJob(Native(process), /*JobHandle=*/nullptr, &native);
  *in_job = native != FALSE;
  return done != FALSE;
}

bool QueryInformationJobObject(std::uint32_t* limit_flags) {
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION native = {};
  const BOOL done = ::QueryInformationJobObject(
      /*hJob=*/nullptr, ::JobObjectExtendedLimitInformation, &native, sizeof native,
      /*lpReturnLength=*/nullptr);
  *limit_flags = native.BasicLimitInformation.LimitFlags;
  return done != FALSE;
}

bool OpenProcessToken(Handle process, Handle* token) {
  HANDLE native = nullptr;
  const BOOL done = ::OpenProcessToken(Native(process), TOKEN_QUERY, &native);
  *token = FromNative(native);
  return done != FALSE;
}

bool GetTokenInformation(Handle token, TokenElevation* elevation) {
  TOKEN_ELEVATION native = {};
  DWORD length = 0;
  const BOOL done =
      ::GetTokenInformation(Native(token), ::TokenElevation, &native, sizeof native, &length);
  elevation->is_elevated = native.TokenIsElevated != 0;
  return done != FALSE;
}

}  // namespace tolvarine::updater::platform
