// What the checker knows of releases, updates and writings, and how it learns.

#include <algorithm>
#include <array>

#include "verb_lab/checker.h"

namespace tolvarine::updater::verb_lab {

using application::Outcome;
using application::PathsOf;

namespace {

// An interrupted verb can have removed the stages of these.
bool MayLoseStage(application::WorkspaceState state) {
  using State = application::WorkspaceState;
  return state == State::Prepared || state == State::BackingUp || state == State::Restored;
}

}  // namespace

// The rules of the states, read anew from what the laboratory sees and knows.
application::WorkspaceState Checker::StateOf(const std::u16string& id, const DiskView& view) const {
  const WorkspaceView& workspace = view.workspaces.at(id);
  if (workspace.completed && !workspace.pending) return State::Installed;
  if (!workspace.journal) {
    if (workspace.more) return State::Damaged;
    return workspace.pending ? State::Prepared : State::Remainder;
  }
  switch (workspace.journal->phase) {
    case TransactionPhase::Backup:
      return State::BackingUp;
    case TransactionPhase::Committed:
      return State::Committed;
    case TransactionPhase::RolledBack:
      return State::Restored;
    default:
      break;
  }
  const auto known = updates_.find(id);
  if (known != updates_.end()) {
    for (const auto& [key, left] : known->second.lists) {
      const std::optional<std::string> content = ContentIn(view.target, key);
      if (content && content != left && content != ContentIn(known->second.base, key)) {
        return State::Foreign;
      }
    }
  }
  return workspace.journal->phase == TransactionPhase::Apply ? State::Applying : State::Restoring;
}

const PackagedRelease* Checker::Described(const DiskView& view) const {
  const auto described = std::ranges::find_if(releases_, [&](const PackagedRelease* release) {
    return release->release.envelope == view.manifest;
  });
  return described == releases_.end() ? nullptr : *described;
}

void Checker::Note(const PackagedRelease& release) {
  if (release.release.description.sequence < highest_) return;
  highest_ = release.release.description.sequence;
  highest_id_ = release.release.id;
}

bool Checker::IsOthers(const std::u16string& key, const Files& target) const {
  const std::optional<std::string> content = ContentIn(target, key);
  return std::ranges::any_of(std::array{&others_, &came_back_}, [&](const Writings* writings) {
    const auto written = writings->find(key);
    return written != writings->end() && written->second.contains(content);
  });
}

bool Checker::Holds(const PackagedRelease& release, const Files& target) const {
  const auto& removed = release.release.description.removed;
  return std::ranges::none_of(removed,
                              [&](const Path& path) { return target.contains(KeyOf(path)); }) &&
         std::ranges::all_of(release.files, [&](const auto& file) {
           return ContentIn(target, KeyOf(file.first)) == file.second;
         });
}

Files Checker::AfterUpdate(const Update& update) {
  Files files = update.base;
  for (const auto& [key, content] : update.lists) {
    files.erase(key);
    if (content) files[key] = *content;
  }
  return files;
}

void Checker::Plan(Update& update, const PackagedRelease& release, const DiskView& before) const {
  update = {};
  update.release = &release;
  update.base = before.target;
  const Files described = FilesOf(release.files);
  for (const auto& [key, content] : described) {
    const bool differs = ContentIn(before.target, key) != content;
    if (differs || key == KeyOf(u"Tolvarine.exe")) update.lists[key] = content;
  }
  Files gone;
  if (const PackagedRelease* installed = Described(before)) {
    gone = FilesOf(installed->files);
  } else {
    for (const Path& path : release.release.description.removed) gone[KeyOf(path)] = {};
  }
  for (const auto& [key, content] : gone) {
    if (!described.contains(key) && before.target.contains(key)) update.lists[key] = std::nullopt;
  }
}

bool Checker::StillFits(const std::u16string& id, const DiskView& view, bool with_deletions) const {
  const auto known = updates_.find(id);
  if (known == updates_.end() || known->second.release == nullptr) return false;
  const Update& update = known->second;
  Update fresh;
  Plan(fresh, *update.release, view);
  for (const auto& [key, content] : fresh.lists) {
    const auto fixed = update.lists.find(key);
    const bool counts = content || with_deletions;
    if (counts && (fixed == update.lists.end() || fixed->second != content)) return false;
  }
  return !view.workspaces.at(id).journal || std::ranges::all_of(update.lists, [&](const auto& row) {
    return ContentIn(view.target, row.first) == ContentIn(update.base, row.first);
  });
}

void Checker::LearnFromStart(const Step& step, const DiskView& before, const DiskView& after) {
  for (const auto& [id, workspace] : before.workspaces) {
    Update& update = updates_[id];
    // The updater plans what it finds now.
    if (step.started && StateOf(id, before) == State::Prepared) {
      update.base = before.target;
      update.written_over = false;
    }
    const bool ended = StateOf(id, before) != State::Installed && after.workspaces.contains(id) &&
                       StateOf(id, after) == State::Installed;
    if (!ended || update.release == nullptr) continue;
    Note(*update.release);
    kept_.clear();
    if (update.written_over) continue;
    for (const auto& [key, content] : update.lists) others_.erase(key);
  }
}

void Checker::LearnAboutStages(const Step& step, const DiskView& before, const DiskView& after) {
  const bool done = !step.cut && step.result.outcome == Outcome::Done;
  for (const auto& [id, workspace] : before.workspaces) {
    const bool gone =
        after.workspaces.contains(id) && workspace.stage && !after.workspaces.at(id).stage;
    const bool may = MayLoseStage(StateOf(id, before)) || step.verb == Verb::Adopt;
    if (gone && may && !done) updates_[id].stage_missing = true;
  }
  if (done && step.verb == Verb::Prepare) updates_[step.release->release.id].stage_missing = false;
}

void Checker::Learn(const Step& step, const DiskView& before, const DiskView& after) {
  const bool done = !step.cut && step.result.outcome == Outcome::Done;
  if (step.verb == Verb::Prepare) {
    const std::u16string& id = step.release->release.id;
    const auto was = before.workspaces.find(id);
    const bool stood =
        was != before.workspaces.end() && (was->second.pending || was->second.journal);
    const std::u16string request =
        StateKey(laboratory_, PathsOf(laboratory_.fixture.installation, id).request);
    const bool same =
        stood && (ContentIn(before.state, request) == ContentIn(after.state, request) ||
                  StillFits(id, before, /*with_deletions=*/true));
    const auto own = after.workspaces.find(id);
    if (!same && own != after.workspaces.end() && own->second.pending) {
      Plan(updates_[id], *step.release, before);
    }
  }
  for (const auto& [id, workspace] : after.workspaces) {
    const PackagedRelease* const release = updates_[id].release;
    if (release == nullptr || StateOf(id, after) != State::Committed) continue;
    perhaps_ = std::max(perhaps_, release->release.description.sequence);
  }
  LearnAboutStages(step, before, after);
  LearnFromStart(step, before, after);
  if (step.verb == Verb::Adopt && done) {
    Note(*step.release);
    for (const auto& [path, content] : step.release->files) others_.erase(KeyOf(path));
    updates_.clear();
  } else if (step.verb == Verb::Adopt && Holds(*step.release, before.target)) {
    perhaps_ = std::max(perhaps_, step.release->release.description.sequence);
  }
}

}  // namespace tolvarine::updater::verb_lab
