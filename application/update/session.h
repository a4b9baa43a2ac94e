// What every verb begins and ends with: both locks, the state of every workspace, and the turning
// of exceptions into reasons.

#pragma once

#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "reasons/reason.h"
#include "reasons/sentences.h"
#include "reasons/verb_failure.h"
#include "state/state_directory.h"
#include "update/difference.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// Adds a reason that refuses, and sets the outcome.
void Refuse(VerbResult& result, ReasonCode code, std::string text, Path path = {});

// The states of all workspaces. Throws SystemError where they cannot be listed.
[[nodiscard]] std::vector<WorkspaceStatus> ReadWorkspaces(const Installation& installation);

// True for an update that has not changed the installation: prepared, backing-up and restored.
[[nodiscard]] bool HasChangedNothing(WorkspaceState state);

// Refuses, with UnfinishedUpdate, where a workspace is in a state that forbids another update (rule
// 1). Returns whether there is none.
bool RequireNoUnfinished(const std::vector<WorkspaceStatus>& workspaces, VerbResult& result);

using StatePredicate = bool (*)(WorkspaceState state);

// The workspace of this id, or, for an empty id, the only one whose state is meant. Refuses and
// returns null where there is none, where it is in another state (`what` completes the sentence
// "The update …"), and where more than one is meant.
[[nodiscard]] const WorkspaceStatus* ChooseWorkspace(const std::vector<WorkspaceStatus>& workspaces,
                                                     const std::u16string& id,
                                                     StatePredicate is_meant, std::string_view what,
                                                     VerbResult& result);

// Refuses because of the state of a workspace: `what` completes "The update … ". An unfinished
// update makes the outcome UnfinishedUpdate.
void RefuseState(const WorkspaceStatus& workspace, std::string_view what, VerbResult& result);

// Requires of S and the directories in it that they are plain directories, as far as they exist:
// the updater refuses paths that lead through a link. Throws VerbFailure.
void RequireStateDirectory(const Installation& installation);

// Both locks, or nothing where one is taken. Throws VerbFailure where the state directory cannot be
// used.
[[nodiscard]] std::optional<InstallationLocks> TakeLocks(const Installation& installation);

// Carries out a verb under both locks: `work` is given the locks and the states. Where a lock is
// taken, or work throws, the result says so. `Result` has a member `result`, or is a VerbResult.
template <typename Result, typename Work>
[[nodiscard]] Result UnderLocks(const Installation& installation, Work work) {
  Result outcome{};
  VerbResult* verb = nullptr;
  if constexpr (requires { outcome.result; }) {
    verb = &outcome.result;
  } else {
    verb = &outcome;
  }
  try {
    std::optional<InstallationLocks> locks = TakeLocks(installation);
    if (locks) {
      work(*locks, ReadWorkspaces(installation), outcome);
    } else {
      verb->outcome = Outcome::Locked;
      verb->reasons.push_back({ReasonCode::Locked,
                               "Another program works on this installation. Wait until it has "
                               "ended, and try again."});
    }
  } catch (const Cancelled&) {
    Refuse(*verb, ReasonCode::Cancelled, "It was cancelled. The same call goes on with it.");
  } catch (const std::exception& failure) {
    Reason reason = ReasonOf(failure);
    Refuse(*verb, reason.code, std::move(reason.text), std::move(reason.path));
  }
  return outcome;
}

}  // namespace tolvarine::updater::application
