#include <set>
#include <stdexcept>

#include "files/failure.h"
#include "files/file_operations.h"
#include "state/request.h"
#include "text/utf8.h"
#include "update/installed_release.h"
#include "update/retire.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

class Finishing {
 public:
  Finishing(const Installation& installation, const ProgressCallback& progress,
            const std::vector<WorkspaceStatus>& workspaces, VerbResult& result)
      : installation_(installation),
        progress_(progress),
        workspaces_(workspaces),
        result_(result) {}

  void Run();

 private:
  void Verify(const VerifiedRelease& release);
  void Remove(const WorkspaceStatus& workspace) const;
  void RemoveUnneededPrograms() const;

  const Installation& installation_;
  const ProgressCallback& progress_;
  const std::vector<WorkspaceStatus>& workspaces_;
  VerbResult& result_;
};

// A file that differs is told, and so is one that cannot be read: what is installed stays
// installed.
void Finishing::Verify(const VerifiedRelease& release) {
  const auto warn = [&](std::string text, Path path) {
    text += " Prepare the same release again to replace what differs.";
    result_.reasons.push_back(
        {ReasonCode::ChangedFile, std::move(text), std::move(path), /*warning=*/true});
  };
  try {
    Path different;
    if (HoldsRelease(installation_.target, release.description, progress_, different)) return;
    warn("The file " + Quoted(different) + " is not the one of the installed release.", different);
  } catch (const std::runtime_error& failure) {
    warn("The installation could not be verified. " + FailureText(failure), {});
  }
}

// The workspace goes in one step: a power cut leaves all of it or nothing.
void Finishing::Remove(const WorkspaceStatus& workspace) const {
  const UpdatePaths paths = PathsOf(installation_, workspace.id);
  RemoveDirectory(paths.stages);
  const Path moved = MoveToAbandoned(installation_, paths.workspace);
  if (!moved.empty()) RemoveDirectory(moved);
}

// The copies of programs that no workspace needs any more.
void Finishing::RemoveUnneededPrograms() const {
  std::set<std::u16string> needed;
  for (const std::u16string& id : WorkspacesOf(installation_)) {
    const LoadedRequest request = LoadRequest(PathsOf(installation_, id));
    if (request.state != RecordState::Sound) return;  // Which ones it needs is not known.
    needed.insert(std::u16string(LastComponent(ParentPath(request.request.updater.path))));
  }
  RemoveAllBut(JoinPath(installation_.state, u"p"), needed);
}

void Finishing::Run() {
  if (!RequireNoUnfinished(workspaces_, result_)) return;
  const std::vector<VerifiedRelease> installed = InstalledUpdates(installation_, workspaces_);
  for (const VerifiedRelease& release : installed) {
    NoteInstalled(installation_, release, "installed");
  }
  if (!installed.empty()) Verify(installed.back());
  for (const WorkspaceStatus& workspace : workspaces_) {
    if (!HasChangedNothing(workspace.report.state)) Remove(workspace);
  }
  RemoveUnneededPrograms();
  // Updates that were given up keep their baseline copies until another one is installed.
  if (LoadLedger(installation_).ledger.last.outcome == "installed") {
    RemoveDirectory(JoinPath(installation_.state, u"abandoned"));
  }
}

}  // namespace

VerbResult Finish(const Installation& installation, const ProgressCallback& progress) {
  return UnderLocks<VerbResult>(
      installation,
      [&](InstallationLocks&, const std::vector<WorkspaceStatus>& workspaces, VerbResult& result) {
        Finishing(installation, progress, workspaces, result).Run();
      });
}

}  // namespace tolvarine::updater::application
