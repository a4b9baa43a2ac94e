// The boxes of the resumer. It is silent wherever it can go on.

#pragma once

#include <string>
#include <vector>

#include "update/running_processes.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// Names the processes that stand in the way. True where the person wants to try again, false where
// the update is to wait for the next logon.
[[nodiscard]] bool AskToEndProcesses(const std::vector<RunningProcess>& processes);

// Says where an update stands that cannot go on, and what helps. `cause` is a whole sentence and may
// be empty.
void ShowStuckUpdate(const WorkspaceStatus& workspace, const std::string& cause);

// Says what happened where there is no single update that it is about.
void ShowProblem(const std::string& text);

}  // namespace tolvarine::updater::application
