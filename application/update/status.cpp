#include <stdexcept>

#include "files/file_operations.h"
#include "update/installed_release.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

InstallationStatus Status(const Installation& installation, std::span<const PublicKey> keys) {
  // Taking the lock would make the state directory.
  const Path root = ParentPath(installation.state);
  if (QueryLinkStatus(root).kind != FileKind::regular &&
      QueryLinkStatus(installation.state).kind == FileKind::not_found) {
    return {};
  }
  return UnderLocks<InstallationStatus>(
      installation,
      [&](InstallationLocks&, std::vector<WorkspaceStatus> workspaces, InstallationStatus& status) {
        status.workspaces = std::move(workspaces);
        std::optional<VerifiedRelease> installed = ReadInstalledRelease(installation, keys);
        if (installed) status.installed_release = std::move(installed->description);
        const LoadedLedger ledger = LoadLedger(installation);
        status.ledger = ledger.ledger;
        if (ledger.state == RecordState::Damaged) {
          status.result.reasons.push_back(
              {ReasonCode::LedgerDamaged,
               "The ledger of the installation is damaged. Install the full package, then adopt."});
        }
      });
}

}  // namespace tolvarine::updater::application
