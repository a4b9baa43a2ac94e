// What the application's library says of an update, against the checker's own reading of the disk.

#include <algorithm>

#include "crash_lab/checker.h"

namespace tolvarine::updater::crash_lab {

using application::InstallationContent;
using application::WorkspaceState;

namespace {

WorkspaceState StateOf(TransactionPhase phase) {
  switch (phase) {
    case TransactionPhase::Backup:
      return WorkspaceState::BackingUp;
    case TransactionPhase::Apply:
      return WorkspaceState::Applying;
    case TransactionPhase::Rollback:
      return WorkspaceState::Restoring;
    case TransactionPhase::Committed:
      return WorkspaceState::Committed;
    default:
      return WorkspaceState::Restored;
  }
}

}  // namespace

// Foreign content apart.
WorkspaceState Checker::StateByTheDisk(const Image& image, const JournalView& journal) const {
  const bool pending = Find(image, pending_) != nullptr;
  if (!pending && Find(image, completed_) != nullptr) return WorkspaceState::Installed;
  if (journal.generation && journal.of_this_target) return StateOf(journal.phase);
  for (auto item = image.upper_bound(transaction_);
       item != image.end() && item->first.starts_with(transaction_); ++item) {
    const std::u16string name = item->first.substr(transaction_.size());
    if (name != u"JOURNAL.0.NEW" && name != u"JOURNAL.1.NEW") return WorkspaceState::Damaged;
  }
  return pending ? WorkspaceState::Prepared : WorkspaceState::Remainder;
}

Checker::Presence Checker::ForeignContent(const Image& image, Disturbance disturbance) const {
  // A file that was said to be missing when the update was planned has no baseline.
  Presence presence =
      disturbance == Disturbance::kFalseAnswer ? Presence::kPossible : Presence::kNone;
  for (const auto& [key, name] : names_) {
    const std::u16string path = target_ + key;
    const simulated::Bytes* const content = Find(image, path);
    if (content == nullptr) {
      // Its directory may have been exchanged for a link.
      if (IsExempt(path)) presence = std::max(presence, Presence::kPossible);
      continue;
    }
    const auto planned = planned_.find(key);
    const bool known = Holds(image, path, name.old_content) ||
                       Holds(image, path, name.new_content) ||
                       (planned != planned_.end() && **content == *planned->second);
    if (!known) return Presence::kCertain;
  }
  return presence;
}

// What was changed by somebody is not judged.
bool Checker::IsTrue(InstallationContent content, const Image& image) const {
  const auto all_hold = [&](Content wanted, Content left_over) {
    return std::ranges::all_of(names_, [&](const auto& item) {
      const FinalName& name = item.second;
      const std::u16string path = target_ + item.first;
      const bool came_back = two_volumes_ && name.*wanted == nullptr;
      return IsExempt(path) || Holds(image, path, name.*wanted) ||
             (came_back && Holds(image, path, name.*left_over));
    });
  };
  switch (content) {
    case InstallationContent::Unknown:
      return true;
    case InstallationContent::Old:
    case InstallationContent::Untouched:
      return all_hold(&FinalName::old_content, &FinalName::new_content);
    case InstallationContent::New:
      return all_hold(&FinalName::new_content, &FinalName::old_content);
    case InstallationContent::WholeFiles:
      return std::ranges::all_of(names_, [&](const auto& item) {
        const std::u16string path = target_ + item.first;
        return IsExempt(path) || IsWhole(image, path, item.second);
      });
  }
  return false;
}

void Checker::CheckWorkspace(const Image& image, const WorkspaceReading& reading,
                             Disturbance disturbance, Figures& figures) {
  const JournalView journal = JournalOf(image);
  const std::string named = "it is said to be " + std::string(NameOf(reading.state));
  Check(figures, Invariant::kStateReadOnly, reading.read_only, named);

  WorkspaceState expected = StateByTheDisk(image, journal);
  const bool changing =
      expected == WorkspaceState::Applying || expected == WorkspaceState::Restoring;
  const Presence foreign = changing ? ForeignContent(image, disturbance) : Presence::kNone;
  const bool may_be_foreign =
      foreign == Presence::kPossible && reading.state == WorkspaceState::Foreign;
  if (foreign == Presence::kCertain || may_be_foreign) expected = WorkspaceState::Foreign;
  Check(figures, Invariant::kStateByTheDisk, reading.state == expected,
        named + ", and is " + std::string(NameOf(expected)));
  const bool complete =
      expected == WorkspaceState::Applying && journal.all_applied && IsInstalled(image);
  Check(figures, Invariant::kStateByTheDisk,
        !complete || reading.content == InstallationContent::New,
        "a complete version is not said to be one");

  // A query that answers falsely can leave any of the two versions incomplete.
  if (disturbance == Disturbance::kFalseAnswer) return;
  Check(figures, Invariant::kStateTrue, IsTrue(reading.content, image), named);
  const bool slots_changed =
      IsExempt(transaction_ + u"JOURNAL.0") || IsExempt(transaction_ + u"JOURNAL.1");
  const bool files_changed =
      std::ranges::any_of(names_, [&](const auto& name) { return IsExempt(target_ + name.first); });
  const bool harsh = (reading.state == WorkspaceState::Damaged && !slots_changed) ||
                     (reading.state == WorkspaceState::Foreign && !files_changed);
  Check(figures, Invariant::kStateHarshWhereCaused, !harsh, named);
}

}  // namespace tolvarine::updater::crash_lab
