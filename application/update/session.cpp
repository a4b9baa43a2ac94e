#include "update/session.h"

#include <algorithm>

#include "files/file_operations.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {

void Refuse(VerbResult& result, ReasonCode code, std::string text, Path path) {
  if (result.outcome == Outcome::Done) result.outcome = Outcome::Refused;
  result.reasons.push_back({code, std::move(text), std::move(path)});
}

void RequireStateDirectory(const Installation& installation) {
  const Path root = ParentPath(installation.state);
  for (const Path& path : {root, installation.state, JoinPath(installation.state, u"updates"),
                           JoinPath(installation.state, u"s")}) {
    const FileKind kind = QueryLinkStatus(path).kind;
    if (kind == FileKind::directory || kind == FileKind::not_found) continue;
    const bool file = kind == FileKind::regular;
    if (!file && kind != FileKind::symlink && kind != FileKind::junction) continue;
    throw VerbFailure(file ? ReasonCode::NotADirectory : ReasonCode::ReparsePointInPath,
                      "The state directory " + Quoted(path) + " is " +
                          (file ? "a file" : "a link") +
                          ". Remove it, or choose another state directory.",
                      path);
  }
}

std::optional<InstallationLocks> TakeLocks(const Installation& installation) {
  RequireStateDirectory(installation);
  try {
    return InstallationLocks::TryTake(installation);
  } catch (const std::exception& failure) {
    throw VerbFailure(ReasonCode::StateNotWritable,
                      "The state directory " + Quoted(installation.state) +
                          " cannot be written to. " + ReasonOf(failure).text,
                      installation.state);
  }
}

std::vector<WorkspaceStatus> ReadWorkspaces(const Installation& installation) {
  std::vector<WorkspaceStatus> workspaces;
  for (const std::u16string& id : WorkspacesOf(installation)) {
    workspaces.push_back({id, ReadWorkspace(PathsOf(installation, id))});
  }
  return workspaces;
}

bool HasChangedNothing(WorkspaceState state) {
  return state == WorkspaceState::Prepared || state == WorkspaceState::BackingUp ||
         state == WorkspaceState::Restored;
}

void RefuseState(const WorkspaceStatus& workspace, std::string_view what, VerbResult& result) {
  const WorkspaceState state = workspace.report.state;
  const bool unfinished = IsUnfinished(state);
  if (unfinished) result.outcome = Outcome::UnfinishedUpdate;
  if (result.outcome == Outcome::Done) result.outcome = Outcome::Refused;
  std::string text = "The update " + Utf8FromUtf16(workspace.id) + " ";
  text.append(what).append(": its state is \"").append(NameOf(state)).append("\". ");
  text.append("What may come next: ").append(NextStepOf(state)).append(".");
  result.reasons.push_back({unfinished ? ReasonCode::UnfinishedUpdate : ReasonCode::WrongState,
                            std::move(text), workspace.report.path});
}

bool RequireNoUnfinished(const std::vector<WorkspaceStatus>& workspaces, VerbResult& result) {
  for (const WorkspaceStatus& workspace : workspaces) {
    if (IsUnfinished(workspace.report.state)) RefuseState(workspace, "is unfinished", result);
  }
  return result.outcome != Outcome::UnfinishedUpdate;
}

const WorkspaceStatus* ChooseWorkspace(const std::vector<WorkspaceStatus>& workspaces,
                                       const std::u16string& id, StatePredicate is_meant,
                                       std::string_view what, VerbResult& result) {
  if (!id.empty()) {
    const auto named = std::ranges::find(workspaces, id, &WorkspaceStatus::id);
    if (named == workspaces.end()) {
      Refuse(result, ReasonCode::NoSuchUpdate,
             "There is no such update. Prepare it first, or look at the status.");
      return nullptr;
    }
    if (is_meant(named->report.state)) return &*named;
    RefuseState(*named, what, result);
    return nullptr;
  }
  const WorkspaceStatus* chosen = nullptr;
  for (const WorkspaceStatus& workspace : workspaces) {
    if (!is_meant(workspace.report.state)) continue;
    if (chosen != nullptr) {
      Refuse(result, ReasonCode::NoSuchUpdate,
             "There is more than one update. Name the one that is meant; the status lists them.");
      return nullptr;
    }
    chosen = &workspace;
  }
  if (chosen != nullptr) return chosen;
  for (const WorkspaceStatus& workspace : workspaces) RefuseState(workspace, what, result);
  if (workspaces.empty()) {
    Refuse(result, ReasonCode::NoSuchUpdate,
           "There is no such update. Prepare it first, or look at the status.");
  }
  return nullptr;
}

}  // namespace tolvarine::updater::application
