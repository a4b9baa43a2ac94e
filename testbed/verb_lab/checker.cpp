#include "verb_lab/checker.h"

#include <algorithm>
#include <array>

#include "state/ledger.h"
#include "state/request.h"
#include "support/shown_text.h"
#include "text/utf8.h"

namespace tolvarine::updater::verb_lab {

using application::Outcome;
using application::PathsOf;
using application::ReasonCode;
using application::UpdatePaths;

namespace {

constexpr std::array kVerbNames = {
#define VERB_LAB_NAME(enumerator, name) std::string_view(name),
    VERB_LAB_VERBS(VERB_LAB_NAME)
#undef VERB_LAB_NAME
};

std::set<std::u16string> KeysOf(std::initializer_list<const Files*> all) {
  std::set<std::u16string> keys;
  for (const Files* files : all) {
    for (const auto& [key, content] : *files) keys.insert(key);
  }
  return keys;
}

bool HasReason(const Step& step, ReasonCode code) {
  return std::ranges::any_of(step.result.reasons,
                             [&](const application::Reason& one) { return one.code == code; });
}

}  // namespace

std::string_view NameOf(Verb verb) { return kVerbNames[static_cast<std::size_t>(verb)]; }

Checker::Checker(Laboratory& laboratory, Report report)
    : laboratory_(laboratory), report_(std::move(report)) {
  for (const PackagedRelease& release : laboratory.releases) releases_.push_back(&release);
  releases_.push_back(&laboratory.newest);
  const DiskView view = Look(laboratory);
  if (const PackagedRelease* described = Described(view)) Note(*described);
  ledger_highest_ = LoadLedger(laboratory.fixture.installation).ledger.highest_sequence;
}

void Checker::Require(Invariant invariant, bool holds, const std::string& what) {
  if (!holds) report_(invariant, what);
}

// --- What others do ------------------------------------------------------------------------------

void Checker::SomebodyWrites(const std::u16string& key, const std::string* content) {
  others_[key].insert(content == nullptr ? std::nullopt : std::optional(*content));
  for (auto& [id, update] : updates_) update.written_over = true;
}

// What it leaves of other releases is nobody's any more.
void Checker::FullPackage(const PackagedRelease& release) {
  for (const auto& [path, content] : release.files) SomebodyWrites(KeyOf(path), &content);
  for (const Path& path : release.release.description.removed) {
    SomebodyWrites(KeyOf(path), nullptr);
  }
  for (const auto& [key, content] : Look(laboratory_).target) SomebodyWrites(key, &content);
}

void Checker::CameBack(const Files& files) {
  for (const auto& [key, content] : files) came_back_[key].insert(content);
}

// --- The installation ----------------------------------------------------------------------------

void Checker::RequireSame(Invariant invariant, const Files& expected, const Files& target,
                          const std::string& what) {
  for (const std::u16string& key : KeysOf({&expected, &target})) {
    const bool same = ContentIn(expected, key) == ContentIn(target, key);
    Require(invariant, same || IsOthers(key, target), what + ": " + Shown(key));
  }
}

// What the state of a workspace says of the installation.
void Checker::CheckContent(const Update& update, State state, const DiskView& before,
                           const DiskView& after) {
  const Files updated = AfterUpdate(update);
  const bool is_new = state == State::Installed || state == State::Committed;
  const bool is_old = state == State::BackingUp || state == State::Restored;
  if (!update.written_over && (is_new || is_old)) {
    RequireSame(Invariant::kStatesTrue, is_new ? updated : update.base, after.target,
                std::string(application::NameOf(state)));
    return;
  }
  if (state == State::Prepared || state == State::Remainder || state == State::Damaged) return;
  for (const std::u16string& key : KeysOf({&updated, &update.base, &after.target})) {
    const std::optional<std::string> content = ContentIn(after.target, key);
    const bool known = content == ContentIn(update.base, key) ||
                       content == ContentIn(updated, key) || IsOthers(key, after.target) ||
                       (update.written_over && content == ContentIn(before.target, key));
    Require(Invariant::kOnlySigned, known, Shown(key));
  }
}

void Checker::CheckTarget(const Step& step, const DiskView& before, const DiskView& after) {
  // A cut can bring back what an unfinished update had removed.
  if (step.verb != Verb::Start && !(step.cut && AnyUnfinished(before))) {
    RequireSame(Invariant::kOnlySigned, before.target, after.target, "changed without an updater");
  }
  bool whole = true;
  for (const auto& [id, workspace] : after.workspaces) {
    const State state = StateOf(id, after);
    const auto known = updates_.find(id);
    if (known != updates_.end()) CheckContent(known->second, state, before, after);
    if (state == State::Applying || state == State::Restoring || state == State::Foreign ||
        state == State::Damaged) {
      whole = false;
    }
  }
  if (whole) CheckOneRelease(after);
}

void Checker::CheckOneRelease(const DiskView& after) {
  std::set<std::u16string> keys;
  for (const PackagedRelease* release : releases_) {
    for (const auto& [path, content] : release->files) keys.insert(KeyOf(path));
  }
  const bool one = std::ranges::any_of(releases_, [&](const PackagedRelease* release) {
    const Files files = FilesOf(release->files);
    return std::ranges::all_of(keys, [&](const std::u16string& key) {
      return ContentIn(files, key) == ContentIn(after.target, key) || IsOthers(key, after.target);
    });
  });
  Require(Invariant::kOneRelease, one, "the installation is of several releases");
}

void Checker::CheckBaseline(const DiskView& after) {
  for (const auto& [id, workspace] : after.workspaces) {
    const State state = StateOf(id, after);
    const auto known = updates_.find(id);
    if (known == updates_.end() || !workspace.journal || state == State::Installed) continue;
    if (state == State::BackingUp && known->second.written_over) continue;
    const Path transaction = PathsOf(laboratory_.fixture.installation, id).transaction;
    const Files backup =
        Below(after.state, StateKey(laboratory_, JoinPath(transaction, u"backup")));
    for (const auto& [key, left] : known->second.lists) {
      const std::optional<std::string> old = ContentIn(known->second.base, key);
      Require(Invariant::kBaselineKept,
              !old || ContentIn(after.target, key) == old || ContentIn(backup, key) == old,
              Shown(key));
    }
  }
}

void Checker::CheckAbandoned(const Step& step, const DiskView& before, const DiskView& after) {
  const std::u16string directory =
      StateKey(laboratory_, JoinPath(laboratory_.fixture.installation.state, u"abandoned"));
  const Files left = Below(after.state, directory);
  for (const std::u16string& name : kept_) {
    Require(Invariant::kBaselineKept, left.contains(name + u"\\"),
            "given-up baseline copies are gone");
  }
  const Files already = Below(before.state, directory);
  for (const auto& [path, content] : left) {
    const std::u16string name = path.substr(0, path.find(u'\\'));
    if (already.contains(name + u"\\") || path != name + u"\\") continue;
    const Files workspace = Below(left, name);
    const bool installed =
        workspace.contains(u"COMPLETED.JSON") && !workspace.contains(u"PENDING.JSON");
    const bool copies = !Below(workspace, u"TRANSACTION\\BACKUP").empty();
    if (copies && !installed && step.verb != Verb::Finish) kept_.insert(name);
  }
}

// --- The state directory -------------------------------------------------------------------------

void Checker::CheckLedger(const DiskView& after) {
  const application::LoadedLedger ledger = LoadLedger(laboratory_.fixture.installation);
  const bool sound = ledger.state == application::RecordState::Sound;
  const bool none = ledger.state == application::RecordState::Missing && ledger_highest_ == 0;
  Require(Invariant::kLedgerRemembers, sound || none, "the ledger cannot be read");
  const std::uint64_t noted = ledger.ledger.highest_sequence;
  Require(Invariant::kLedgerRemembers, noted >= ledger_highest_, "the highest sequence fell");
  Require(Invariant::kLedgerRemembers, noted <= std::max(highest_, perhaps_),
          "a sequence that was never installed");
  const bool all_noted = std::ranges::none_of(after.workspaces, [&](const auto& workspace) {
    return StateOf(workspace.first, after) == State::Installed;
  });
  Require(Invariant::kLedgerRemembers, !all_noted || noted >= highest_,
          "an installed release was not noted");
  ledger_highest_ = noted;
}

void Checker::CheckPrepared(const std::u16string& id, const DiskView& after) {
  const UpdatePaths paths = PathsOf(laboratory_.fixture.installation, id);
  const auto known = updates_.find(id);
  if (known == updates_.end() || known->second.release == nullptr) {
    return Require(Invariant::kPreparedComplete, false, "nobody prepared it");
  }
  const Update& update = known->second;
  const std::string& envelope = update.release->release.envelope;
  for (const Path& path : {paths.release, paths.pending}) {
    Require(Invariant::kPreparedComplete,
            ContentIn(after.state, StateKey(laboratory_, path)) == envelope, Shown(path));
  }
  const application::LoadedRequest request = LoadRequest(paths);
  if (request.state != application::RecordState::Sound) {
    return Require(Invariant::kPreparedComplete, false, "its request cannot be read");
  }
  const auto& disk = laboratory_.fixture.computer.disk;
  Require(Invariant::kPreparedComplete,
          disk.ReadFile(request.request.updater.path) == disk.ReadFile(laboratory_.fixture.updater),
          "the copy of the updater");
  std::set<std::u16string> deleted;
  for (const Path& path : request.request.deletions) deleted.insert(KeyOf(path));
  Files staged;
  for (const auto& [key, content] : update.lists) {
    if (content) staged[key] = *content;
    if (!content) deleted.erase(key);
  }
  Require(Invariant::kPreparedComplete, deleted.empty(), "another file is to be deleted");
  if (update.stage_missing) return;
  Files stage = Below(after.state, StateKey(laboratory_, paths.stage));
  std::erase_if(stage, [](const auto& entry) { return entry.first.ends_with(u'\\'); });
  Require(Invariant::kPreparedComplete, stage == staged, "the stage of " + Shown(id.substr(0, 4)));
}

void Checker::CheckStages(const Step& step, const DiskView& before, const DiskView& after) {
  for (const auto& [id, workspace] : before.workspaces) {
    if (!workspace.stage) continue;
    const State state = StateOf(id, before);
    const bool stands = after.state.contains(
        StateKey(laboratory_, PathsOf(laboratory_.fixture.installation, id).stage + u"\\"));
    const bool needed = application::IsUnfinished(state);
    if (after.workspaces.contains(id)) {
      const bool installed = StateOf(id, after) == State::Installed;
      Require(Invariant::kStageKept, stands || !needed || installed, "the stage was removed");
    } else {
      const bool renewed = step.verb == Verb::Prepare && step.release->release.id == id;
      // Of a remainder nothing was durable.
      Require(Invariant::kStageKept, !stands || renewed || needed || state == State::Remainder,
              "the workspace went before its stage");
    }
  }
}

void Checker::CheckStates(const Step& step, const DiskView& before, const DiskView& after) {
  std::size_t current = 0;
  for (const auto& [id, workspace] : after.workspaces) {
    const State state = StateOf(id, after);
    if (state != State::Installed && state != State::Remainder) ++current;
    const Update& update = updates_[id];
    Require(Invariant::kStatesTrue, state != State::Foreign || update.written_over,
            "foreign without anybody's act");
    Require(Invariant::kStatesTrue, state != State::Damaged || update.damaged,
            "damaged without anybody's act");
    if (workspace.pending) CheckPrepared(id, after);
  }
  const bool prepared =
      step.verb == Verb::Prepare && !step.cut && step.result.outcome == Outcome::Done;
  if (prepared && !step.disturbed) {
    Require(Invariant::kPreparedComplete,
            StillFits(step.release->release.id, after, /*with_deletions=*/true),
            "what was prepared does not fit the installation");
  }
  Require(Invariant::kOneUpdate, current <= 1, "two updates at once");
  for (const auto& [id, workspace] : before.workspaces) {
    const State state = StateOf(id, before);
    const bool stands = after.workspaces.contains(id);
    const bool same = stands && StateOf(id, after) == state;
    const bool unfinished = application::IsUnfinished(state);
    const bool stuck = state == State::Foreign || state == State::Damaged;
    const bool may_change =
        step.verb == Verb::Adopt || (step.verb == Verb::Start && !stuck) || !unfinished;
    Require(Invariant::kStatesTrue, same || may_change, "an unfinished update changed its state");
    if (state != State::Installed || !stands || same) continue;
    const State now = StateOf(id, after);
    const bool again = step.verb == Verb::Prepare && now == State::Prepared;
    Require(Invariant::kStatesTrue, again || now == State::Remainder, "installed, and then not");
  }
  CheckStatus(after);
}

void Checker::CheckStatus(const DiskView& after) {
  const application::InstallationStatus status = laboratory_.fixture.Status();
  Require(
      Invariant::kStatesTrue,
      status.result.outcome == Outcome::Done && status.workspaces.size() == after.workspaces.size(),
      "the status cannot be read");
  for (const application::WorkspaceStatus& workspace : status.workspaces) {
    if (!after.workspaces.contains(workspace.id)) continue;
    const State state = StateOf(workspace.id, after);
    Require(Invariant::kStatesTrue, workspace.report.state == state,
            "the status says " + std::string(application::NameOf(workspace.report.state)) +
                " of what is " + std::string(application::NameOf(state)));
  }
}

// --- Each step -----------------------------------------------------------------------------------

void Checker::CheckUnchanged(const Step& step, const DiskView& before, const DiskView& after) {
  const bool reads = step.verb == Verb::Status || step.verb == Verb::Check;
  // A cut can take back what earlier verbs have done.
  if (step.cut || (step.result.outcome == Outcome::Done && !reads)) return;
  // A verb that failed midway goes on with the next call; one that the rules refuse never began.
  const auto refused = {ReasonCode::UnfinishedUpdate, ReasonCode::NoSuchUpdate,
                        ReasonCode::WrongState, ReasonCode::OldSequence, ReasonCode::NothingToDo};
  const bool by_rule =
      std::ranges::any_of(refused, [&](ReasonCode code) { return HasReason(step, code); });
  if (!reads && step.disturbed && !by_rule) return;
  const bool midway =
      HasReason(step, ReasonCode::Cancelled) || HasReason(step, ReasonCode::PackageMismatch);
  if (!reads && midway && step.verb != Verb::Prepare) return;
  const auto compared = [&](Files files) {
    const std::u16string root = StateKey(laboratory_, laboratory_.fixture.installation.state);
    std::erase_if(files, [&](const auto& entry) {
      const auto lies_in = [&](const char16_t* name) {
        return entry.first.starts_with(root + u"\\" + name);
      };
      return entry.first == root + u"\\" ||
             (midway && (lies_in(u"S\\") || lies_in(u"P\\") || lies_in(u"FORMER\\")));
    });
    return files;
  };
  const Files was = compared(before.state);
  const Files is = compared(after.state);
  for (const std::u16string& key : KeysOf({&was, &is})) {
    Require(Invariant::kRefusedChangesNothing, ContentIn(was, key) == ContentIn(is, key),
            Shown(key));
  }
  // One that an earlier verb has left after a cut may go.
  const bool probe_stays = step.disturbed && after.names.size() == 1;
  Require(Invariant::kRefusedChangesNothing,
          probe_stays || std::ranges::includes(before.names, after.names), "a temporary");
}

void Checker::After(const Step& step, const DiskView& before, const DiskView& after) {
  CheckResult(step, before);
  CheckUnchanged(step, before, after);
  Learn(step, before, after);
  CheckStart(step, before, after);
  CheckTarget(step, before, after);
  CheckBaseline(after);
  CheckAbandoned(step, before, after);
  CheckLedger(after);
  CheckStages(step, before, after);
  CheckStates(step, before, after);
}

void Checker::Converged(const DiskView& view, const application::InstallationStatus& status) {
  const Files newest = FilesOf(laboratory_.newest.files);
  for (const auto& [key, content] : newest) {
    Require(Invariant::kConverges, ContentIn(view.target, key) == content, Shown(key));
  }
  for (const auto& [key, content] : view.target) {
    Require(Invariant::kConverges, newest.contains(key) || IsOthers(key, view.target),
            "left in the target: " + Shown(key));
  }
  Require(Invariant::kConverges, view.names.empty(), "a temporary is left in the target");
  Require(Invariant::kConverges, status.workspaces.empty(), "a workspace is left");
  Require(Invariant::kConverges,
          status.installed_release &&
              status.installed_release->sequence == laboratory_.newest.release.description.sequence,
          "the installed manifest");
  const std::u16string root = StateKey(laboratory_, laboratory_.fixture.installation.state) + u"\\";
  for (const char16_t* name : {u"ABANDONED", u"S", u"P", u"UPDATES"}) {
    Require(Invariant::kConverges, Below(view.state, root + name).empty(),
            "left in the state directory: " + Shown(name));
  }
}

}  // namespace tolvarine::updater::verb_lab
