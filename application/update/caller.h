// Who calls a verb.

#pragma once

#include <optional>

#include "reasons/reason.h"

namespace tolvarine::updater::application {

// Why this process may not prepare or start an update: it has an administrator's rights, and the
// state directory could have been written by somebody with fewer. Nothing for any other process.
[[nodiscard]] std::optional<Reason> RefusalOfCaller();

}  // namespace tolvarine::updater::application
