#include "update/finish.h"

#include <algorithm>
#include <set>

#include "driver/request_validation.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "state/request.h"
#include "text/utf8.h"
#include "update/installed_release.h"
#include "update/registration.h"
#include "update/retire.h"
#include "update/running_processes.h"
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
  void NoteAndVerify(const WorkspaceStatus& workspace);
  void Remove(const WorkspaceStatus& workspace) const;
  [[nodiscard]] bool IsAnyAskedFor() const;
  void RemoveUnneeded() const;

  const Installation& installation_;
  const ProgressCallback& progress_;
  const std::vector<WorkspaceStatus>& workspaces_;
  VerbResult& result_;
};

bool IsInstalled(const WorkspaceStatus& workspace) {
  return workspace.report.state == WorkspaceState::Installed;
}

void Finishing::NoteAndVerify(const WorkspaceStatus& workspace) {
  const UpdatePaths paths = PathsOf(installation_, workspace.id);
  const VerifiedRelease release = ReadReleaseOfUpdate(paths.completed, workspace.id);
  NoteInstalled(installation_, release, "installed");
  Path different;
  if (HoldsRelease(installation_.target, release.description, progress_, different)) return;
  result_.reasons.push_back({ReasonCode::ChangedFile,
                             "The file " + Quoted(different) +
                                 " is not the one of the installed release. Prepare the same "
                                 "release again to replace what differs.",
                             different, /*warning=*/true});
}

// The transaction goes first: an older slot of it must not be what is left of the workspace.
void Finishing::Remove(const WorkspaceStatus& workspace) const {
  const UpdatePaths paths = PathsOf(installation_, workspace.id);
  MoveToAbandoned(installation_, paths.transaction);
  RemoveDirectory(paths.stages);
  RemoveDirectory(paths.workspace);
}

// Everything in a directory, but for names that are kept.
void RemoveAllBut(const Path& directory, const std::set<std::u16string>& kept) {
  std::vector<Path> removed;
  const std::uint32_t code =
      EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
        if (!kept.contains(std::u16string(LastComponent(entry.path)))) {
          removed.push_back(entry.path);
        }
        return 0;
      });
  if (code != 0 && !IsNotFoundError(code)) throw FilesystemError("enumerate", code, directory);
  for (const Path& path : removed) RemoveDirectory(path);
}

// Stages, program copies and abandoned updates that no workspace needs any more.
void Finishing::RemoveUnneeded() const {
  std::set<std::u16string> stages;
  std::set<std::u16string> programs;
  for (const std::u16string& id : WorkspacesOf(installation_)) {
    const UpdatePaths paths = PathsOf(installation_, id);
    stages.insert(std::u16string(LastComponent(paths.stages)));
    const LoadedRequest request = LoadRequest(paths);
    if (request.state != RecordState::Sound) return;  // Whose programs are not known.
    for (const ProgramCopy& program : {request.request.updater, request.request.resumer}) {
      programs.insert(std::u16string(LastComponent(ParentPath(program.path))));
    }
  }
  // A resumer that runs cannot remove itself.
  programs.insert(std::u16string(LastComponent(ParentPath(OwnImage()))));
  RemoveAllBut(JoinPath(installation_.state, u"s"), stages);
  RemoveAllBut(JoinPath(installation_.state, u"p"), programs);
}

// An update that was asked for is resumed at the next logon.
bool Finishing::IsAnyAskedFor() const {
  return std::ranges::any_of(workspaces_, [](const WorkspaceStatus& one) {
    return one.report.launched && !IsInstalled(one) &&
           one.report.state != WorkspaceState::Remainder;
  });
}

void Finishing::Run() {
  const bool unfinished = std::ranges::any_of(
      workspaces_, [](const WorkspaceStatus& one) { return IsUnfinished(one.report.state); });
  for (const WorkspaceStatus& workspace : workspaces_) {
    if (IsInstalled(workspace)) NoteAndVerify(workspace);
  }
  for (const WorkspaceStatus& workspace : workspaces_) {
    const bool remainder = workspace.report.state == WorkspaceState::Remainder;
    if (IsInstalled(workspace) || remainder) Remove(workspace);
  }
  if (unfinished) {
    RequireNoUnfinished(workspaces_, result_);
    return;
  }
  if (!IsAnyAskedFor()) UnregisterResumer(installation_);
  RemoveUnneeded();
  // Updates that were given up keep their baseline copies until another one is installed.
  if (LoadLedger(installation_).ledger.last.outcome == "installed") {
    RemoveDirectory(JoinPath(installation_.state, u"abandoned"));
  }
}

}  // namespace

VerbResult FinishUnderLocks(const Installation& installation,
                            const std::vector<WorkspaceStatus>& workspaces,
                            const ProgressCallback& progress) {
  VerbResult result;
  Finishing(installation, progress, workspaces, result).Run();
  return result;
}

VerbResult Finish(const Installation& installation, const ProgressCallback& progress) {
  return UnderLocks<VerbResult>(
      installation,
      [&](InstallationLocks&, const std::vector<WorkspaceStatus>& workspaces, VerbResult& result) {
        result = FinishUnderLocks(installation, workspaces, progress);
      });
}

}  // namespace tolvarine::updater::application
