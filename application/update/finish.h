// Finishing what is installed under locks that are held already.

#pragma once

#include <vector>

#include "update/verbs.h"

namespace tolvarine::updater::application {

// As Finish. Throws what UnderLocks turns into reasons.
[[nodiscard]] VerbResult FinishUnderLocks(const Installation& installation,
                                          const std::vector<WorkspaceStatus>& workspaces,
                                          const ProgressCallback& progress);

}  // namespace tolvarine::updater::application
