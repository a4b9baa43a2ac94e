#include <algorithm>

#include "text/utf8.h"
#include "update/installed_release.h"
#include "update/retire.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

bool CanBeAbandoned(WorkspaceState state) {
  return state == WorkspaceState::Prepared || state == WorkspaceState::BackingUp ||
         state == WorkspaceState::Restored || state == WorkspaceState::Remainder;
}

}  // namespace

VerbResult Abandon(const Installation& installation, const std::u16string& id) {
  return UnderLocks<VerbResult>(
      installation,
      [&](InstallationLocks&, const std::vector<WorkspaceStatus>& workspaces, VerbResult& result) {
        const WorkspaceStatus* const chosen =
            ChooseWorkspace(workspaces, id, CanBeAbandoned, "cannot be abandoned", result);
        if (chosen == nullptr) return;
        SweepRestored(installation, *chosen);
        // Noted before, so that a Finish after a power cut keeps what is moved now.
        NoteResult(installation, chosen->id, "abandoned");
        AbandonUpdate(installation, chosen->id);
      });
}

}  // namespace tolvarine::updater::application
