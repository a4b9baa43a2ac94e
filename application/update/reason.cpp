#include "update/reason.h"

#include <algorithm>
#include <array>

namespace tolvarine::updater::application {

std::string_view NameOf(ReasonCode code) {
  static constexpr std::array kNames = {
#define TOLVARINE_REASON(enumerator, name) std::string_view(name),
      TOLVARINE_REASONS(TOLVARINE_REASON)
#undef TOLVARINE_REASON
  };
  return kNames[static_cast<std::size_t>(code)];
}

bool Refuses(const Reasons& reasons) {
  return std::ranges::any_of(reasons, [](const Reason& reason) { return !reason.warning; });
}

}  // namespace tolvarine::updater::application
