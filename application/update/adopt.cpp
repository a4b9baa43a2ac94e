#include <map>

#include "files/file_operations.h"
#include "lists/release_path.h"
#include "text/utf8.h"
#include "update/installed_release.h"
#include "update/retire.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

[[noreturn]] void Refuse(const Path& path, const char* what) {
  throw VerbFailure(ReasonCode::NotTheRelease,
                    "The installation does not hold exactly this release: " + Quoted(path) + what,
                    path);
}

using Paths = std::map<std::u16string, Path>;  // By key.

void Add(const ReleaseDescription& description, Paths& paths) {
  for (const SourceInventoryEntry& file : description.files) {
    paths.emplace(PathCompareKey(file.path), file.path);
  }
  for (const Path& path : description.removed) paths.emplace(PathCompareKey(path), path);
}

// What other releases may have left: the files of the installed one, of the updates and of their
// journals. What of this cannot be read just now is passed over, since a full package has been
// installed over it.
Paths FilesOfOthers(const Installation& installation, const AdoptRequest& request,
                    std::span<const PublicKey> keys,
                    const std::vector<WorkspaceStatus>& workspaces) {
  Paths paths;
  for (const Path& path : request.release.description.removed) {
    paths.emplace(PathCompareKey(path), path);
  }
  if (const auto installed = ReadInstalledRelease(installation, keys)) {
    Add(installed->description, paths);
  }
  for (const WorkspaceStatus& workspace : workspaces) {
    try {
      const Path file = PathsOf(installation, workspace.id).release;
      Add(ReadReleaseOfUpdate(file, workspace.id).description, paths);
    } catch (const std::runtime_error&) {
      // It is missing or damaged; the journal names what was touched.
    }
    if (!workspace.report.journal) continue;
    for (const JournalEntry& entry : workspace.report.journal->entries) {
      paths.emplace(PathCompareKey(entry.path), entry.path);
    }
  }
  for (const SourceInventoryEntry& file : request.release.description.files) {
    paths.erase(PathCompareKey(file.path));
  }
  return paths;
}

void RequireRelease(const Installation& installation, const AdoptRequest& request,
                    const Paths& of_others) {
  Path different;
  if (!HoldsRelease(installation.target, request.release.description, request.progress,
                    different)) {
    Refuse(different,
           " is missing, or is not the one described. Install the full package, then adopt.");
  }
  for (const auto& [key, path] : of_others) {
    const FileKind kind = QueryLinkStatus(JoinPath(installation.target, path)).kind;
    if (kind == FileKind::not_found || kind == FileKind::directory) continue;
    Refuse(path, " is of another release, or of an update. Remove it, then adopt.");
  }
}

}  // namespace

// The workspaces go before the manifest: one that a power cut left behind could be resumed.
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
        const Paths of_others = FilesOfOthers(installation, request, keys, workspaces);
        RequireRelease(installation, request, of_others);
        // What was installed before counts, noted or not.
        if (const auto installed = ReadInstalledRelease(installation, keys)) {
          NoteInstalled(installation, *installed, "adopted");
        }
        for (const VerifiedRelease& release : InstalledUpdates(installation, workspaces)) {
          NoteInstalled(installation, release, "adopted");
        }
        NoteInstalled(installation, request.release, "adopted");
        for (const WorkspaceStatus& workspace : workspaces) {
          SweepTemporaries(installation, workspace);
          // Cut off in between, an unfinished update could not be resumed without its stage.
          if (IsUnfinished(workspace.report.state)) {
            MoveToAbandoned(installation, PathsOf(installation, workspace.id).workspace);
          }
          AbandonUpdate(installation, workspace.id);
        }
        WriteFileDurably(InstalledManifestOf(installation), request.release.envelope);
      });
}

}  // namespace tolvarine::updater::application
