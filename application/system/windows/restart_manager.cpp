#include "system/restart_manager.h"

#include <vector>

#include "system/windows/library.h"

// After the system's header, whose types it needs.
#include <restartmanager.h>

namespace tolvarine::updater::platform {

static_assert(kErrorMoreData == ERROR_MORE_DATA);

namespace {

// What every call answers where the library, or the function in it, is missing.
constexpr std::uint32_t kMissing = ERROR_MOD_NOT_FOUND;

template <typename Function, typename... Arguments>
std::uint32_t Call(const char* name, Arguments... arguments) {
  static const HMODULE library = SystemLibrary(L"rstrtmgr.dll");
  return CallByName<Function>(library, name, kMissing, arguments...);
}

RmProcessInfo Converted(const RM_PROCESS_INFO& native) {
  const FILETIME& start = native.Process.ProcessStartTime;
  return {native.Process.dwProcessId,
          std::uint64_t{start.dwHighDateTime} << 32 | start.dwLowDateTime,
          reinterpret_cast<const char16_t*>(native.strAppName)};
}

}  // namespace

std::uint32_t RmStartSession(std::uint32_t* session) {
  DWORD native = 0;
  wchar_t key[CCH_RM_SESSION_KEY + 1] = {};
  const std::uint32_t code = Call<decltype(::RmStartSession)>("RmStartSession", &native,
                                                              /*dwSessionFlags=*/DWORD{0}, key);
  *session = native;
  return code;
}

std::uint32_t RmRegisterResources(std::uint32_t session, const char16_t* const* files,
                                  std::uint32_t count) {
  // The system declares its input as writable but only reads it.
  const auto native = reinterpret_cast<LPCWSTR*>(const_cast<const char16_t**>(files));
  return Call<decltype(::RmRegisterResources)>(
      "RmRegisterResources", session, count, native, /*nApplications=*/UINT{0},
      /*rgApplications=*/static_cast<RM_UNIQUE_PROCESS*>(nullptr), /*nServices=*/UINT{0},
      /*rgsServiceNames=*/static_cast<LPCWSTR*>(nullptr));
}

std::uint32_t RmGetList(std::uint32_t session, std::uint32_t* needed, std::uint32_t* count,
                        RmProcessInfo* processes) {
  std::vector<RM_PROCESS_INFO> native(*count);
  UINT there = 0;
  UINT filled = *count;
  DWORD reboot_reasons = 0;
  const std::uint32_t code = Call<decltype(::RmGetList)>("RmGetList", session, &there, &filled,
                                                         native.data(), &reboot_reasons);
  *needed = there;
  *count = code == ERROR_SUCCESS ? filled : 0;
  for (UINT i = 0; i < *count; ++i) processes[i] = Converted(native[i]);
  return code;
}

std::uint32_t RmEndSession(std::uint32_t session) {
  return Call<decltype(::RmEndSession)>("RmEndSession", session);
}

}  // namespace tolvarine::updater::platform
