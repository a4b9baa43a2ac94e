#include "crash_lab/checker.h"

#include <algorithm>

#include "journal/journal_text.h"
#include "text/fnv1a.h"
#include "text/utf8.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::FoldName;

constexpr std::u16string_view kTemporarySuffix = u".TOLVARINE-UPDATE-NEW";

std::u16string Key(std::u16string path) {
  std::ranges::replace(path, u'/', u'\\');
  return FoldName(path);
}

// Lets the program's own text functions run without a call on the computer that is being explored.
class OwnComputer {
 public:
  OwnComputer() : previous_(simulated::Computer::Current()) { computer_.MakeCurrent(); }
  OwnComputer(const OwnComputer&) = delete;
  OwnComputer& operator=(const OwnComputer&) = delete;
  ~OwnComputer() { previous_.MakeCurrent(); }

 private:
  simulated::Computer& previous_;
  simulated::Computer computer_;
};

std::optional<JournalView> ParsedSlot(const std::string& text) {
  const OwnComputer own;
  const std::optional<TransactionJournal> journal = ParseJournal(text);
  if (!journal) return std::nullopt;
  JournalView view{.directory_empty = false};
  view.generation = journal->generation;
  view.phase = journal->phase;
  if (journal->intent != TransactionIntent::None) {
    view.announced = Key(journal->entries[journal->intent_entry].path);
  }
  return view;
}

}  // namespace

Checker::Checker(const simulated::SimulatedUpdate& staged)
    : plan_(staged.plan),
      two_volumes_(staged.plan.state_drive != staged.plan.target_drive),
      target_(Key(staged.target) + u"\\"),
      transaction_(Key(staged.layout.transaction) + u"\\"),
      pending_(Key(staged.layout.pending_marker)),
      completed_(Key(staged.layout.completed_marker)),
      manifest_(Key(staged.layout.installed_manifest)),
      launched_(Key(staged.layout.launched_marker)),
      archive_(Key(staged.layout.archive)) {
  for (const auto& [path, content] : plan_.baseline) {
    const std::u16string key = Key(path);
    const bool released = std::ranges::any_of(
        plan_.release, [&key](const auto& file) { return Key(file.first) == key; });
    const bool deleted = std::ranges::any_of(
        plan_.deletions, [&key](const std::u16string& other) { return Key(other) == key; });
    if (released || deleted) names_[key].old_content = &content;
  }
  for (const std::u16string& path : plan_.deletions) names_.try_emplace(Key(path));
  for (const auto& [path, content] : plan_.release) names_[Key(path)].new_content = &content;

  own_ = {pending_,  completed_, manifest_,           manifest_ + u".TMP",
          launched_, archive_,   target_ + u"LOG.TXT"};
  for (const auto& [key, name] : names_) own_.insert(target_ + key);
  for (const auto& [key, entry] : ImageOf(staged.computer.disks.volumes)) {
    if (!IsOfNoConcern(key)) bystanders_[key] = entry;
  }
}

// --- Reading an image ----------------------------------------------------------------------------

const simulated::Bytes* Checker::Find(const Image& image, const std::u16string& key) {
  const auto entry = image.find(key);
  return entry == image.end() || !entry->second.content ? nullptr : &entry->second.content;
}

bool Checker::Holds(const Image& image, const std::u16string& key, const std::string* content) {
  const simulated::Bytes* const found = Find(image, key);
  if (found == nullptr || content == nullptr) return found == nullptr && content == nullptr;
  return **found == *content;
}

// What the updater makes and removes on its way: its own paths, the transaction, temporaries beside
// final names, and directories on the way to them.
bool Checker::IsOfNoConcern(const std::u16string& key) const {
  if (own_.contains(key) || key.starts_with(transaction_)) return true;
  if (!key.starts_with(target_)) return false;
  const std::u16string below = key.substr(target_.size());
  if (below.ends_with(kTemporarySuffix)) {
    return names_.contains(below.substr(0, below.size() - kTemporarySuffix.size()));
  }
  return below.ends_with(u'\\') && std::ranges::any_of(names_, [&](const auto& name) {
           return name.first.starts_with(below);
         });
}

bool Checker::SameNames(const Image& a, const Image& b) const {
  return std::ranges::all_of(names_, [&](const auto& name) {
    const simulated::Bytes* const content = Find(b, target_ + name.first);
    return Holds(a, target_ + name.first, content == nullptr ? nullptr : content->get());
  });
}

void Checker::ExemptOnly(std::vector<std::u16string> prefixes) {
  for (std::u16string& prefix : prefixes) prefix = Key(prefix);
  exempt_ = std::move(prefixes);
}

bool Checker::IsExempt(const std::u16string& key) const {
  return std::ranges::any_of(exempt_,
                             [&](const std::u16string& prefix) { return key.starts_with(prefix); });
}

bool Checker::HasTemporary(const Image& image) const {
  return std::ranges::any_of(image, [&](const auto& item) {
    return item.first.starts_with(target_) && item.first.ends_with(kTemporarySuffix);
  });
}

bool Checker::MarkerMoved(const Image& image) const {
  return Find(image, completed_) != nullptr && Find(image, pending_) == nullptr;
}

bool Checker::AllHold(const Image& image, Content content, Content left_over) const {
  return std::ranges::all_of(names_, [&](const auto& item) {
    const std::u16string key = target_ + item.first;
    const FinalName& name = item.second;
    const bool came_back =
        left_over != nullptr && name.*content == nullptr && Holds(image, key, name.*left_over);
    return came_back || IsExempt(key) || Holds(image, key, name.*content);
  });
}

bool Checker::IsInstalled(const Image& image) const {
  return AllHold(image, &FinalName::new_content, nullptr);
}

bool Checker::IsBaseline(const Image& image) const {
  return AllHold(image, &FinalName::old_content, nullptr);
}

bool Checker::IsNearlyInstalled(const Image& image) const {
  return AllHold(image, &FinalName::new_content, two_volumes_ ? &FinalName::old_content : nullptr);
}

bool Checker::IsNearlyBaseline(const Image& image) const {
  return AllHold(image, &FinalName::old_content, two_volumes_ ? &FinalName::new_content : nullptr);
}

JournalView Checker::JournalOf(const Image& image) {
  JournalView view;
  const auto first = image.upper_bound(transaction_);
  view.directory_empty = first == image.end() || !first->first.starts_with(transaction_);
  for (int slot = 0; slot < 2; ++slot) {
    const char16_t* const name = slot == 0 ? u"JOURNAL.0" : u"JOURNAL.1";
    const simulated::Bytes* const text = Find(image, transaction_ + name);
    if (text == nullptr) continue;
    const auto [parsed, is_new] = parsed_.try_emplace(Fnv1a64(**text));
    if (is_new) parsed->second = ParsedSlot(**text);
    const std::optional<JournalView>& candidate = parsed->second;
    if (!candidate || (view.generation && *candidate->generation <= *view.generation)) continue;
    view = *candidate;
    view.slot = slot;
  }
  return view;
}

// --- At every moment -----------------------------------------------------------------------------

void Checker::CheckState(const Image& image, std::optional<std::uint64_t> generation,
                         Disturbance disturbance, Figures& figures) {
  const JournalView journal = JournalOf(image);
  CheckFinalNames(image, disturbance, figures);
  const bool honest = disturbance != Disturbance::kFalseAnswer;
  if (honest && journal.phase == TransactionPhase::Apply) CheckExecutable(image, figures);
  CheckBystanders(image, figures);
  if (honest) {
    CheckBaseline(image, journal, figures);
    CheckJournal(image, journal, generation, figures);
  }
  // A save of Committed that fails leaves Committed in memory, and the manifest goes out with every
  // entry applied but with Apply on the disk.
  const bool applied = disturbance != Disturbance::kNone && IsNearlyInstalled(image);
  const bool committed = journal.phase == TransactionPhase::Committed || MarkerMoved(image);
  CheckMarkers(image, committed || applied, figures);
}

// A file that is said to be missing when the plan is made has no baseline to come back to.
void Checker::CheckFinalNames(const Image& image, Disturbance disturbance, Figures& figures) {
  const bool may_be_absent = disturbance == Disturbance::kFalseAnswer;
  for (const auto& [key, name] : names_) {
    const bool absent = Find(image, target_ + key) == nullptr;
    const bool whole = IsExempt(target_ + key) || (absent && may_be_absent) ||
                       Holds(image, target_ + key, name.old_content) ||
                       Holds(image, target_ + key, name.new_content);
    Check(figures, Invariant::kFinalNamesWhole, whole, key);
  }
}

void Checker::CheckExecutable(const Image& image, Figures& figures) {
  const auto executable = names_.find(u"TOLVARINE.EXE");
  if (executable == names_.end() ||
      !Holds(image, target_ + executable->first, executable->second.new_content)) {
    return;
  }
  const bool same = Holds(image, target_ + executable->first, executable->second.old_content);
  Check(figures, Invariant::kExecutableLast, same || IsNearlyInstalled(image),
        "the new executable beside an old file");
}

void Checker::CheckChange(const Image& before, const Image& now, Figures& figures) {
  const JournalView journal = JournalOf(now);
  for (const auto& [key, name] : names_) {
    const simulated::Bytes* const content = Find(before, target_ + key);
    if (Holds(now, target_ + key, content == nullptr ? nullptr : content->get())) continue;
    Check(figures, Invariant::kAnnounced, journal.announced == key, key);
  }
  if (MarkerMoved(now) && !MarkerMoved(before)) {
    Check(figures, Invariant::kMarkersWhole, JournalOf(before).phase == TransactionPhase::Committed,
          "the marker was moved before Committed was durable");
  }
}

void Checker::CheckBystanders(const Image& image, Figures& figures) {
  for (const auto& [key, entry] : bystanders_) {
    if (IsExempt(key)) continue;
    const auto now = image.find(key);
    const bool same =
        now != image.end() && now->second.attributes == entry.attributes &&
        (!entry.content || (now->second.content && *now->second.content == *entry.content));
    Check(figures, Invariant::kBystandersUntouched, same, key);
  }
  for (const auto& [key, entry] : image) {
    if (IsOfNoConcern(key) || IsExempt(key) || bystanders_.contains(key)) continue;
    const bool in_target = key.starts_with(target_);
    Check(figures, in_target ? Invariant::kAuthenticatedBytes : Invariant::kBystandersUntouched,
          false, key);
  }
  Check(figures, Invariant::kAuthenticatedBytes, true, std::u16string_view());
}

// Until Committed is durable, and not where the transaction is over and its directory going.
void Checker::CheckBaseline(const Image& image, const JournalView& journal, Figures& figures) {
  if (journal.phase == TransactionPhase::Committed || MarkerMoved(image)) return;
  for (const auto& [key, name] : names_) {
    if (name.old_content == nullptr || IsExempt(target_ + key)) continue;
    const bool kept = Holds(image, target_ + key, name.old_content) ||
                      Holds(image, transaction_ + u"BACKUP\\" + key, name.old_content);
    Check(figures, Invariant::kBaselineKept, kept, key);
  }
}

void Checker::CheckJournal(const Image& image, const JournalView& journal,
                           std::optional<std::uint64_t> generation, Figures& figures) {
  const bool removing = MarkerMoved(image);
  if (generation && !removing) {
    const bool recent = journal.generation && *journal.generation + 1 >= *generation;
    Check(figures, Invariant::kSlotValid, recent, "no slot, or one that is too old");
    const bool in_place =
        !journal.generation || *journal.generation % 2 == std::uint64_t(journal.slot);
    Check(figures, Invariant::kSlotValid, in_place, "a generation in the other's slot");
  }
  if (!journal.IsCorrupt()) return;
  // Inside the first save nothing was there to be found before. It may be that of a transaction that
  // was planned again after a finalization was cut short.
  const bool first_save = !generation && (IsBaseline(image) || IsNearlyInstalled(image));
  const bool final_removal = generation && removing && IsNearlyInstalled(image);
  Check(figures, Invariant::kCorruptOnlyWhereAccepted, first_save || final_removal, "corrupt");
  if (first_save) ++figures.accepted.corrupt_in_first_save;
  if (final_removal) ++figures.accepted.corrupt_in_removal;
}

void Checker::CheckMarkers(const Image& image, bool committed, Figures& figures) {
  const std::string pending(simulated::kPendingContent);
  const std::string previous(simulated::kPreviousManifest);
  const auto check = [&](bool holds, const char* what) {
    Check(figures, Invariant::kMarkersWhole, holds, what);
  };
  const bool pending_there = Holds(image, pending_, &pending);
  const bool completed_there = Holds(image, completed_, &pending);
  check(pending_there || (Find(image, pending_) == nullptr && completed_there), "pending marker");
  check(completed_there || Find(image, completed_) == nullptr, "completed marker");
  check(!completed_there || committed, "completed marker before its time");
  check(Holds(image, manifest_, &previous) || (Holds(image, manifest_, &pending) && committed),
        "installed manifest");
}

// --- At the end of a run -------------------------------------------------------------------------

void Checker::CheckEnd(const RunEnd& end, const Image& after, Figures& figures) {
  Check(figures, Invariant::kNothingLeaked, end.open_handles == 0, "handles are open");
  if (end.disturbance == Disturbance::kFalseAnswer) return;
  CheckTable(end, after, figures);
  if (end.disturbance == Disturbance::kLasting) return;
  const bool exact = IsInstalled(after) || IsBaseline(after);
  const bool nearly = IsNearlyInstalled(after) || IsNearlyBaseline(after);
  // A run that failed before it took the journal up leaves what it found, be it half done.
  const bool as_found = end.disturbance != Disturbance::kNone && !end.changed_names;
  Check(figures, Invariant::kEndsWhole, exact || nearly || as_found, "a mixture");
  if (nearly && !exact) ++figures.accepted.removal_came_back;
  const bool temporary = HasTemporary(after) && end.disturbance == Disturbance::kNone;
  Check(figures, Invariant::kNoTemporaryLeft, !temporary, "a temporary in the target");
}

void Checker::CheckTable(const RunEnd& end, const Image& after, Figures& figures) {
  const std::string fault = TableFault(end, after);
  Check(figures, Invariant::kEndsByTheTable, fault.empty(), fault);
}

}  // namespace tolvarine::updater::crash_lab
