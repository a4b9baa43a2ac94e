// How an undisturbed verb has to end, by what the laboratory knows.

#include <algorithm>

#include "verb_lab/checker.h"

namespace tolvarine::updater::verb_lab {

using application::IsUnfinished;
using application::Outcome;
using application::PathsOf;
using application::ReasonCode;

namespace {

bool MayStart(application::WorkspaceState state) {
  using State = application::WorkspaceState;
  return state == State::Prepared || state == State::BackingUp || state == State::Restored ||
         state == State::Applying || state == State::Restoring || state == State::Committed;
}

bool MayBeAbandoned(application::WorkspaceState state) {
  using State = application::WorkspaceState;
  return state == State::Prepared || state == State::BackingUp || state == State::Restored ||
         state == State::Remainder;
}

bool HasReason(const application::VerbResult& result, ReasonCode code) {
  return std::ranges::any_of(result.reasons, [&](const application::Reason& reason) {
    return reason.code == code && !reason.warning;
  });
}

}  // namespace

bool Checker::AnyUnfinished(const DiskView& view) const {
  return std::ranges::any_of(view.workspaces, [&](const auto& workspace) {
    return IsUnfinished(StateOf(workspace.first, view));
  });
}

// The workspace that a verb acts on is the one named, or else the only one that it can act on.
Checker::Expected Checker::ExpectOf(const std::u16string& id, bool (*allows)(State),
                                    const DiskView& before, std::u16string* chosen) const {
  std::vector<std::u16string> all;
  std::vector<std::u16string> allowed;
  for (const auto& [one, workspace] : before.workspaces) {
    if (!id.empty() && one != id) continue;
    all.push_back(one);
    if (allows(StateOf(one, before))) allowed.push_back(one);
  }
  const std::vector<std::u16string>& choice = allowed.empty() ? all : allowed;
  if (choice.size() != 1) return {Outcome::Refused, ReasonCode::NoSuchUpdate};
  if (chosen != nullptr) *chosen = choice.front();
  if (!allowed.empty()) return {};
  if (IsUnfinished(StateOf(choice.front(), before))) {
    return {Outcome::UnfinishedUpdate, ReasonCode::UnfinishedUpdate};
  }
  return {Outcome::Refused, ReasonCode::WrongState};
}

Checker::Expected Checker::ExpectPrepare(const Step& step, const DiskView& before) const {
  if (AnyUnfinished(before)) return {Outcome::UnfinishedUpdate, ReasonCode::UnfinishedUpdate};
  const application::VerifiedRelease& release = step.release->release;
  const std::uint64_t sequence = release.description.sequence;
  const PackagedRelease* const installed = Described(before);
  const bool again = installed != nullptr && installed->release.id == release.id;
  if (sequence != step.accepted_sequence && !again) {
    const bool other = sequence == highest_ && release.id != highest_id_;
    if (sequence < highest_ || other) return {Outcome::Refused, ReasonCode::OldSequence};
    if (sequence <= perhaps_) return {.known = false};
  }
  Update planned;
  Plan(planned, *step.release, before);
  const auto own = before.workspaces.find(release.id);
  if (own != before.workspaces.end()) {
    const State state = StateOf(release.id, before);
    if (MayStart(state) && StillFits(release.id, before, /*with_deletions=*/true)) return {};
  }
  const bool changes = std::ranges::any_of(planned.lists, [&](const auto& row) {
    const auto standing = before.target.find(row.first);
    if (standing == before.target.end()) return row.second.has_value();
    return standing->second != row.second;
  });
  if (!changes) return {Outcome::Refused, ReasonCode::NothingToDo};
  return {};
}

// What the installed manifest, a signed release or a journal of an update names is of others, where
// the release does not hold it.
bool Checker::HoldsNothingOfOthers(const PackagedRelease& release, const DiskView& view) const {
  std::set<std::u16string> others;
  const auto add = [&](const PackagedRelease& other) {
    for (const auto& [path, content] : other.files) others.insert(KeyOf(path));
    for (const Path& path : other.release.description.removed) others.insert(KeyOf(path));
  };
  if (const PackagedRelease* installed = Described(view)) add(*installed);
  for (const auto& [id, workspace] : view.workspaces) {
    const auto file = view.state.find(
        StateKey(laboratory_, PathsOf(laboratory_.fixture.installation, id).release));
    for (const PackagedRelease* other : releases_) {
      const application::VerifiedRelease& described = other->release;
      if (described.id != id || file == view.state.end()) continue;
      if (file->second == described.envelope) add(*other);
    }
    if (!workspace.journal) continue;
    for (const JournalEntry& entry : workspace.journal->entries) others.insert(KeyOf(entry.path));
  }
  for (const auto& [path, content] : release.files) others.erase(KeyOf(path));
  return std::ranges::none_of(others,
                              [&](const std::u16string& key) { return view.target.contains(key); });
}

Checker::Expected Checker::Expect(const Step& step, const DiskView& before) const {
  switch (step.verb) {
    case Verb::Status:
      return {};
    case Verb::Check:
    case Verb::Prepare:
      return ExpectPrepare(step, before);
    case Verb::Start: {
      std::u16string id;
      const Expected expected = ExpectOf(step.id, MayStart, before, &id);
      if (expected.outcome != Outcome::Done || IsUnfinished(StateOf(id, before))) return expected;
      // One that has changed nothing has to fit the installation as it is.
      if (!before.workspaces.at(id).stage || !StillFits(id, before, /*with_deletions=*/false)) {
        return {Outcome::Refused, ReasonCode::WrongState};
      }
      return {};
    }
    case Verb::Abandon:
      return ExpectOf(step.id, MayBeAbandoned, before);
    case Verb::Finish:
      if (!AnyUnfinished(before)) return {};
      return {Outcome::UnfinishedUpdate, ReasonCode::UnfinishedUpdate};
    case Verb::Adopt:
      if (!Holds(*step.release, before.target)) {
        return {Outcome::Refused, ReasonCode::NotTheRelease};
      }
      if (!HoldsNothingOfOthers(*step.release, before)) {
        return {Outcome::Refused, ReasonCode::NotTheRelease};
      }
      return {};
  }
  return {.known = false};
}

void Checker::CheckResult(const Step& step, const DiskView& before) {
  Require(Invariant::kResultsTrue, step.exception.empty(), "left by " + step.exception);
  if (step.cut || !step.exception.empty()) return;
  const application::VerbResult& result = step.result;
  const int code = static_cast<int>(result.outcome);
  Require(Invariant::kResultsTrue, code == 0 || code == 1 || code == 3 || code == 4,
          "exit code " + std::to_string(code));
  Require(Invariant::kResultsTrue,
          application::Refuses(result.reasons) == (result.outcome != Outcome::Done),
          "outcome and reasons do not agree");
  Require(Invariant::kResultsTrue,
          HasReason(result, ReasonCode::UnfinishedUpdate) ==
              (result.outcome == Outcome::UnfinishedUpdate),
          "an unfinished update and the outcome do not agree");
  Require(Invariant::kResultsTrue, !step.locked || result.outcome == Outcome::Locked,
          "it did not heed a lock");
  if (step.disturbed || step.locked) return;
  const Expected expected = Expect(step, before);
  if (!expected.known) return;
  const bool done = expected.outcome == Outcome::Done;
  const bool agrees =
      result.outcome == expected.outcome && (done || HasReason(result, expected.reason));
  const bool old = !done && expected.reason == ReasonCode::OldSequence;
  Require(old ? Invariant::kLedgerRemembers : Invariant::kResultsTrue, agrees,
          "expected " + std::string(done ? "to be done" : application::NameOf(expected.reason)));
}

void Checker::CheckStart(const Step& step, const DiskView& before, const DiskView& after) {
  if (step.verb != Verb::Start) {
    Require(Invariant::kStatesTrue, !step.started, "a process was started");
    return;
  }
  std::u16string id;
  const bool may_start = ExpectOf(step.id, MayStart, before, &id).outcome == Outcome::Done &&
                         Expect(step, before).outcome == Outcome::Done;
  Require(Invariant::kStatesTrue, may_start || !step.started, "an updater was started");
  if (!may_start || step.disturbed || step.locked || step.cut) return;
  const Update& update = updates_[id];
  if (update.written_over) return;
  if (update.stage_missing) {
    Require(Invariant::kResultsTrue, !IsUnfinished(StateOf(id, after)),
            "an update without its stage stays unfinished");
    return;
  }
  const State ending = StateOf(id, before) == State::Restoring ? State::Restored : State::Installed;
  Require(Invariant::kResultsTrue, StateOf(id, after) == ending,
          "an undisturbed update does not end");
  Require(Invariant::kResultsTrue, (step.exit_code == 0) == (ending == State::Installed),
          "the updater's exit code");
}

}  // namespace tolvarine::updater::verb_lab
