#include "update/session.h"

#include <algorithm>

#include "text/utf8.h"

namespace tolvarine::updater::application {

void Refuse(VerbResult& result, ReasonCode code, std::string text, Path path) {
  if (result.outcome == Outcome::Done) result.outcome = Outcome::Refused;
  result.reasons.push_back({code, std::move(text), std::move(path)});
}

std::vector<WorkspaceStatus> ReadWorkspaces(const Installation& installation) {
  std::vector<WorkspaceStatus> workspaces;
  for (const std::u16string& id : WorkspacesOf(installation)) {
    workspaces.push_back({id, ReadWorkspace(PathsOf(installation, id))});
  }
  return workspaces;
}

void RefuseState(const WorkspaceStatus& workspace, std::string_view what, VerbResult& result) {
  const WorkspaceState state = workspace.report.state;
  const bool unfinished = IsUnfinished(state);
  result.outcome = unfinished ? Outcome::UnfinishedUpdate : Outcome::Refused;
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
                                       const std::u16string& id, bool (*allows)(WorkspaceState),
                                       std::string_view what, VerbResult& result) {
  std::vector<const WorkspaceStatus*> meant;
  std::vector<const WorkspaceStatus*> allowed;
  for (const WorkspaceStatus& workspace : workspaces) {
    if (!id.empty() && workspace.id != id) continue;
    meant.push_back(&workspace);
    if (allows(workspace.report.state)) allowed.push_back(&workspace);
  }
  if (allowed.size() == 1) return allowed.front();
  if (meant.empty()) {
    Refuse(result, ReasonCode::NoSuchUpdate,
           "There is no such update. Prepare it first, or look at the status.");
  } else if (meant.size() > 1) {
    Refuse(result, ReasonCode::NoSuchUpdate,
           "There is more than one update. Name the one that is meant; the status lists them.");
  } else {
    RefuseState(*meant.front(), what, result);
  }
  return nullptr;
}

}  // namespace tolvarine::updater::application
