// Preparing an update under locks that are held already.

#pragma once

#include <optional>
#include <vector>

#include "update/verbs.h"

namespace tolvarine::updater::application {

// As Prepare. `installed` is the description of what is installed, where there is one. Throws what
// UnderLocks turns into reasons.
[[nodiscard]] PreparedUpdate PrepareUnderLocks(const Installation& installation,
                                               const PrepareRequest& request,
                                               const std::optional<VerifiedRelease>& installed,
                                               const std::vector<WorkspaceStatus>& workspaces);

}  // namespace tolvarine::updater::application
