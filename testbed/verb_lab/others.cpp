#include "verb_lab/others.h"

#include <algorithm>

#include "support/shown_text.h"

namespace tolvarine::updater::verb_lab {

using application::PathsOf;
using application::WorkspaceState;

// An update that has to be resumed is what others can harm most.
bool Others::IsMidway() const {
  const DiskView view = Look(laboratory_);
  return std::ranges::any_of(view.workspaces, [&](const auto& workspace) {
    return application::IsUnfinished(checker_.StateOf(workspace.first, view));
  });
}

// An installed update whose transaction an interrupted updater has not removed.
bool Others::HasLeftovers() const {
  const DiskView view = Look(laboratory_);
  return std::ranges::any_of(view.workspaces, [](const auto& workspace) {
    return workspace.second.completed && workspace.second.more;
  });
}

void Others::InstallPackage(const PackagedRelease& release) {
  const Path& target = laboratory_.fixture.target;
  checker_.FullPackage(release);
  for (const auto& [path, content] : release.files) {
    computer_.disk.WriteFile(JoinPath(target, path), content);
  }
  for (const Path& path : release.release.description.removed) {
    computer_.disk.Remove(JoinPath(target, path));
  }
  computer_.disks.Settle();
  say_("  a full package is installed: " + release.release.description.version);
}

void Others::ChangeFile() {
  const Files target = Look(laboratory_).target;
  std::u16string key =
      random_.Chance(30) || target.empty() ? KeyOf(u"user/notes.txt") : random_.OneOf(target).first;
  const Path path = JoinPath(laboratory_.fixture.target, key);
  const std::string content = "a person's " + std::to_string(random_.Below(3));
  if (random_.Chance(25)) {
    checker_.SomebodyWrites(key, nullptr);
    computer_.disk.Remove(path);
    say_("  a person deletes " + Shown(key));
  } else {
    checker_.SomebodyWrites(key, &content);
    computer_.disk.WriteFile(path, content);
    say_("  a person changes " + Shown(key));
  }
  computer_.disks.Settle();
}

// With an update that has to be resumed, often the package as well.
void Others::CleanStage() {
  const DiskView view = Look(laboratory_);
  for (const auto& [id, workspace] : view.workspaces) {
    const WorkspaceState state = checker_.StateOf(id, view);
    const bool resumed = state == WorkspaceState::Applying || state == WorkspaceState::Restoring ||
                         state == WorkspaceState::Committed;
    if (state != WorkspaceState::Prepared && !resumed) continue;
    checker_.StageRemoved(id);
    computer_.disk.Remove(PathsOf(laboratory_.fixture.installation, id).stages);
    say_("  a cleaner removes the stage of " + Shown(id.substr(0, 4)));
    if (!resumed || random_.Chance(50)) continue;
    for (const PackagedRelease& release : laboratory_.releases) {
      computer_.disk.Remove(release.package);
    }
    packages_gone_ = true;
    say_("  a cleaner removes the packages");
  }
  computer_.disks.Settle();
}

// A journal stands without its marker.
void Others::RemovePendingMarker() {
  for (const auto& [id, workspace] : Look(laboratory_).workspaces) {
    if (!workspace.journal || !workspace.pending || workspace.completed) continue;
    computer_.disk.Remove(PathsOf(laboratory_.fixture.installation, id).pending);
    say_("  the pending marker of " + Shown(id.substr(0, 4)) + " is removed");
  }
  computer_.disks.Settle();
}

// As a first save that was cut off leaves them.
void Others::LeaveSlotTemporaries() {
  const DiskView view = Look(laboratory_);
  for (const auto& [id, workspace] : view.workspaces) {
    if (checker_.StateOf(id, view) != WorkspaceState::Prepared) continue;
    const Path transaction = PathsOf(laboratory_.fixture.installation, id).transaction;
    const char16_t* const name = random_.Chance(50) ? u"journal.0.new" : u"journal.1.new";
    computer_.disk.WriteFile(JoinPath(transaction, name),
                             random_.Chance(50) ? "" : "part of a journal");
    say_("  a slot temporary of " + Shown(id.substr(0, 4)) + " stands alone");
  }
  computer_.disks.Settle();
}

// Puts every package in its place, as a new download does.
void Others::Download() {
  for (const PackagedRelease& release : laboratory_.releases) {
    for (const auto& [path, content] : release.files) {
      computer_.disk.WriteFile(JoinPath(release.package, path), content);
    }
  }
  packages_gone_ = false;
  computer_.disks.Settle();
}

void Others::DamageJournal() {
  for (const auto& [id, workspace] : Look(laboratory_).workspaces) {
    if (!workspace.journal || !workspace.pending) continue;
    checker_.JournalDamaged(id);
    const Path transaction = PathsOf(laboratory_.fixture.installation, id).transaction;
    for (const char16_t* slot : {u"journal.0", u"journal.1"}) {
      computer_.disk.WriteFile(JoinPath(transaction, slot), "damaged");
    }
    say_("  the journal of " + Shown(id.substr(0, 4)) + " is damaged");
  }
  computer_.disks.Settle();
}

}  // namespace tolvarine::updater::verb_lab
