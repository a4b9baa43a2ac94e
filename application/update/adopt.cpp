#include "files/file_operations.h"
#include "text/utf8.h"
#include "update/installed_release.h"
#include "update/retire.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

void RequireRelease(const Installation& installation, const AdoptRequest& request) {
  const auto refuse = [](const Path& path, const char* what) {
    throw VerbFailure(ReasonCode::NotTheRelease,
                      "The installation does not hold exactly this release: " + Quoted(path) +
                          what + " Install the full package, then adopt.",
                      path);
  };
  const ReleaseDescription& description = request.release.description;
  Path different;
  if (!HoldsRelease(installation.target, description, request.progress, different)) {
    refuse(different, " is missing, or is not the one described.");
  }
  for (const Path& path : description.removed) {
    const FileKind kind = QueryLinkStatus(JoinPath(installation.target, path)).kind;
    if (kind != FileKind::not_found) refuse(path, " is of an earlier release.");
  }
}

// To adopt is the way out of a damaged ledger.
Ledger LedgerBefore(const Installation& installation) {
  if (LoadLedger(installation).state == RecordState::Damaged) return {};
  return ReadLedger(installation);
}

}  // namespace

VerbResult Adopt(const Installation& installation, const AdoptRequest& request,
                 std::span<const PublicKey> keys) {
  return UnderLocks<VerbResult>(
      installation,
      [&](InstallationLocks&, const std::vector<WorkspaceStatus>& workspaces, VerbResult& result) {
        for (const WorkspaceStatus& workspace : workspaces) {
          if (workspace.report.state != WorkspaceState::Unreadable) continue;
          RefuseState(workspace, "cannot be read", result);
          return;
        }
        RequireRelease(installation, request);
        // An update that has been installed may not have been noted yet, and the manifest that says
        // so is replaced.
        Ledger ledger = LedgerBefore(installation);
        const std::optional<VerifiedRelease> former = ReadInstalledRelease(installation, keys);
        if (former) Include(ledger, *former);
        NoteInstalled(installation, std::move(ledger), request.release, "adopted");
        for (const WorkspaceStatus& workspace : workspaces) {
          SweepTemporaries(installation, workspace);
          // Cut off in between, an unfinished update could not be resumed without its stage.
          if (IsUnfinished(workspace.report.state)) {
            MoveToAbandoned(installation, PathsOf(installation, workspace.id).workspace);
          }
          AbandonUpdate(installation, workspace.id);
        }
        // Last: an update that could still be started would make the manifest untrue.
        WriteFileDurably(InstalledManifestOf(installation), request.release.envelope);
      });
}

}  // namespace tolvarine::updater::application
