#include "simulated_windows/call.h"

#include <array>
#include <cstddef>

namespace tolvarine::updater::simulated {

std::string_view CallName(Call call) {
  static constexpr std::array kNames = {
#define TOLVARINE_NAME(name) std::string_view(#name),
      TOLVARINE_SIMULATED_CALLS(TOLVARINE_NAME)
#undef TOLVARINE_NAME
  };
  return kNames[static_cast<std::size_t>(call)];
}

bool IsRelease(Call call) {
  switch (call) {
    case Call::CloseHandle:
    case Call::FindClose:
    case Call::Fclose:
    case Call::BCryptDestroyHash:
    case Call::BCryptCloseAlgorithmProvider:
    case Call::ReleaseMutex:
    case Call::BCryptDestroyKey:
    case Call::RmEndSession:
    case Call::RegCloseKey:
      return true;
    default:
      return false;
  }
}

}  // namespace tolvarine::updater::simulated
