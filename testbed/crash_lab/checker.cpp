#include "crash_lab/checker.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "journal/journal_text.h"
#include "platform/files.h"
#include "platform/shell.h"
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

// A number in decimal on a line of its own, behind its keyword and a blank.
std::optional<std::uint64_t> NumberOnLine(const std::string& text, const std::string& keyword) {
  const std::size_t start = text.find("\n" + keyword + " ");
  if (start == std::string::npos) return std::nullopt;
  return std::strtoull(text.c_str() + start + keyword.size() + 2, nullptr, 10);
}

struct OwnReading {
  std::uint64_t generation = 0;
  TransactionPhase phase = TransactionPhase::None;
};

// Reads a slot without the program's code. Nothing where the checksum is not that of the text.
std::optional<OwnReading> ReadSlot(const std::string& text) {
  constexpr std::array kPhases = {TransactionPhase::None,      TransactionPhase::Backup,
                                  TransactionPhase::Apply,     TransactionPhase::Rollback,
                                  TransactionPhase::Committed, TransactionPhase::RolledBack};
  const auto checksum = NumberOnLine(text, "checksum");
  const auto generation = NumberOnLine(text, "generation");
  const auto phase = NumberOnLine(text, "phase");
  if (!checksum || !generation || !phase || *phase >= kPhases.size()) return std::nullopt;
  std::uint64_t hash = 14695981039346656037U;  // FNV-1a of 64 bits.
  const std::size_t end = text.rfind("\nchecksum ") + 1;
  for (std::size_t i = 0; i < end; ++i) {
    hash = (hash ^ static_cast<unsigned char>(text[i])) * 1099511628211U;
  }
  const bool sound = text.substr(end) == "checksum " + std::to_string(hash) + "\n";
  if (!sound) return std::nullopt;
  return OwnReading{*generation, kPhases[*phase]};
}

// The counter of the phase that announces this way.
std::uint64_t CounterOf(const TransactionJournal& journal) {
  if (journal.intent == TransactionIntent::Backup) return journal.backup;
  return journal.intent == TransactionIntent::Apply ? journal.apply : journal.rollback;
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
      archive_(Key(staged.layout.archive)),
      restart_{u"open", staged.TargetPath(staged.arguments.restart), staged.target,
               platform::kShowNormal} {
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
    if (!key.starts_with(target_)) continue;
    if (key.ends_with(u'\\')) directories_.insert(key);
    const auto name = names_.find(key.substr(target_.size()));
    if (name != names_.end()) name->second.old_attributes = entry.attributes;
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

// What the updater makes and removes: its own paths, the transaction, temporaries beside final
// names, and directories that lead to them.
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
  planned_.clear();
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
    return came_back || Holds(image, key, name.*content);
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

Checker::ParsedSlot Checker::ParseSlot(const std::string& text) const {
  const OwnComputer own;
  const std::optional<TransactionJournal> journal = ParseJournal(text);
  const std::optional<OwnReading> reading = ReadSlot(text);
  ParsedSlot slot{.readers_agree = journal.has_value() == reading.has_value()};
  if (!journal) return slot;
  slot.readers_agree = slot.readers_agree && journal->generation == reading->generation &&
                       journal->phase == reading->phase;
  slot.view = {.directory_empty = false,
               .generation = journal->generation,
               .phase = journal->phase,
               .all_applied = journal->apply == journal->entries.size(),
               .of_this_target = Key(journal->target) + u"\\" == target_};
  if (journal->intent != TransactionIntent::None) {
    slot.view->announced = Key(journal->entries[journal->intent_entry].path);
    slot.view->in_turn = journal->intent_entry == CounterOf(*journal);
  }
  return slot;
}

// Most often a slot is the one of the image before, and shares its bytes.
const Checker::ParsedSlot& Checker::Parsed(const simulated::Bytes& text, LastParsed& last) {
  if (last.text != text) {
    const auto [parsed, is_new] = parsed_.try_emplace(std::hash<std::string>{}(*text));
    if (is_new) parsed->second = ParseSlot(*text);
    last = {text, &parsed->second};
  }
  return *last.slot;
}

JournalView Checker::JournalOf(const Image& image) {
  JournalView view;
  const auto first = image.upper_bound(transaction_);
  view.directory_empty = first == image.end() || !first->first.starts_with(transaction_);
  bool readers_agree = true;
  for (int slot = 0; slot < 2; ++slot) {
    const char16_t* const name = slot == 0 ? u"JOURNAL.0" : u"JOURNAL.1";
    const simulated::Bytes* const text = Find(image, transaction_ + name);
    if (text == nullptr) continue;
    const ParsedSlot& parsed = Parsed(*text, last_parsed_[static_cast<std::size_t>(slot)]);
    readers_agree = readers_agree && parsed.readers_agree;
    const std::optional<JournalView>& candidate = parsed.view;
    if (!candidate || (view.generation && *candidate->generation <= *view.generation)) continue;
    view = *candidate;
    view.slot = slot;
  }
  view.readers_agree = readers_agree;
  return view;
}

// --- At every state ------------------------------------------------------------------------------

void Checker::StartRun(const Image& image, Disturbance disturbance) {
  const std::optional<std::uint64_t> generation = JournalOf(image).generation;
  if (!generation) NotePlanned(image);
  found_broken_.clear();
  Figures found;
  CheckInvariants(image, generation, disturbance, found);
  for (const Violation& broken : found.violations) {
    found_broken_.emplace(broken.invariant, broken.what);
  }
}

void Checker::NotePlanned(const Image& image) {
  for (const auto& [key, name] : names_) {
    const simulated::Bytes* const content = Find(image, target_ + key);
    if (content != nullptr && IsExempt(target_ + key)) planned_[key] = *content;
  }
}

void Checker::CheckState(const Image& image, std::optional<std::uint64_t> generation,
                         Disturbance disturbance, Figures& figures) {
  const auto first = static_cast<std::ptrdiff_t>(figures.violations.size());
  CheckInvariants(image, generation, disturbance, figures);
  const auto known = [&](const Violation& one) {
    return found_broken_.contains({one.invariant, one.what});
  };
  figures.violations.erase(
      std::remove_if(figures.violations.begin() + first, figures.violations.end(), known),
      figures.violations.end());
}

void Checker::CheckInvariants(const Image& image, std::optional<std::uint64_t> generation,
                              Disturbance disturbance, Figures& figures) {
  const JournalView journal = JournalOf(image);
  CheckFinalNames(image, disturbance, figures);
  CheckBystanders(image, figures);
  CheckWorkspaceFiles(image, figures);
  if (disturbance != Disturbance::kFalseAnswer) {
    if (journal.phase == TransactionPhase::Apply) CheckExecutable(image, figures);
    CheckBaseline(image, journal, figures);
    CheckJournal(image, journal, generation, figures);
  }
  // A save of Committed that fails leaves Committed in memory: the manifest is published with every
  // entry applied but with Apply on the disk.
  const bool applied = disturbance != Disturbance::kNone && IsNearlyInstalled(image);
  const bool committed = journal.phase == TransactionPhase::Committed || MarkerMoved(image);
  CheckMarkers(image, committed || applied, figures);
}

// Attributes are those of the file whose content is there.
bool Checker::IsWhole(const Image& image, const std::u16string& key, const FinalName& name) const {
  const auto entry = image.find(key);
  if (entry == image.end()) return name.old_content == nullptr || name.new_content == nullptr;
  const auto holds = [&](const std::string* content, std::uint32_t attributes) {
    return Holds(image, key, content) && entry->second.attributes == attributes;
  };
  return holds(name.old_content, name.old_attributes) ||
         holds(name.new_content, platform::kFileAttributeArchive);
}

// A file that is said to be missing when the plan is made has no baseline to come back to.
void Checker::CheckFinalNames(const Image& image, Disturbance disturbance, Figures& figures) {
  const bool may_be_absent = disturbance == Disturbance::kFalseAnswer;
  for (const auto& [key, name] : names_) {
    const std::u16string path = target_ + key;
    const bool holds = IsExempt(path) || IsWhole(image, path, name) ||
                       (may_be_absent && Find(image, path) == nullptr);
    Check(figures, Invariant::kFinalNamesWhole, holds, key);
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
  Check(figures, Invariant::kAnnounced, journal.in_turn, u"an entry is announced out of its turn");
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
  for (const std::u16string& key : directories_) {
    if (IsExempt(key)) continue;
    Check(figures, Invariant::kBystandersUntouched, image.contains(key), key);
  }
  for (const auto& [key, entry] : image) {
    if (IsOfNoConcern(key) || IsExempt(key) || bystanders_.contains(key)) continue;
    const bool in_target = key.starts_with(target_);
    Check(figures, in_target ? Invariant::kAuthenticatedBytes : Invariant::kBystandersUntouched,
          false, key);
  }
  Check(figures, Invariant::kAuthenticatedBytes, true, std::u16string_view());
}

// A baseline copy under its own name is whole; that of an update which is planned again after its
// finalization was cut short is a copy of the new file. It may be missing once Committed is durable
// or the marker has been moved.
void Checker::CheckBaseline(const Image& image, const JournalView& journal, Figures& figures) {
  const bool may_go = journal.phase == TransactionPhase::Committed || MarkerMoved(image);
  for (const auto& [key, name] : names_) {
    const std::u16string backup = transaction_ + u"BACKUP\\" + key;
    if (name.old_content == nullptr || IsExempt(target_ + key) || IsExempt(backup)) continue;
    const bool copied = Holds(image, backup, name.old_content);
    const bool whole = copied || Find(image, backup) == nullptr ||
                       (MarkerMoved(image) && Holds(image, backup, name.new_content));
    Check(figures, Invariant::kBaselineKept, whole, backup);
    const bool kept = may_go || copied || Holds(image, target_ + key, name.old_content);
    Check(figures, Invariant::kBaselineKept, kept, key);
  }
}

void Checker::CheckJournal(const Image& image, const JournalView& journal,
                           std::optional<std::uint64_t> generation, Figures& figures) {
  const bool removing = MarkerMoved(image);
  Check(figures, Invariant::kSlotValid, journal.readers_agree,
        "the program reads a slot otherwise than the checker");
  if (generation && !removing) {
    const bool recent = journal.generation && *journal.generation + 1 >= *generation;
    Check(figures, Invariant::kSlotValid, recent, "no slot, or one that is too old");
    const bool in_place =
        !journal.generation || *journal.generation % 2 == std::uint64_t(journal.slot);
    Check(figures, Invariant::kSlotValid, in_place, "a generation in the other's slot");
  }
  if (!journal.IsCorrupt()) return;
  // Before the first save is complete, a load finds nothing. The transaction may be one that is
  // planned again after a finalization was cut short.
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

// launched.json and archive.zip keep their content until they are removed. The archive is removed
// when the update is final.
void Checker::CheckWorkspaceFiles(const Image& image, Figures& figures) {
  const std::string launched(simulated::kLaunchedContent);
  const std::string archive(simulated::kArchiveContent);
  const auto holds = [&](const std::u16string& key, const std::string& content, bool may_be_gone) {
    const bool gone = Find(image, key) == nullptr && may_be_gone;
    Check(figures, Invariant::kBystandersUntouched, gone || Holds(image, key, &content), key);
  };
  holds(launched_, launched, true);
  holds(archive_, archive, MarkerMoved(image));
}

// --- At the end of a run -------------------------------------------------------------------------

void Checker::CheckEnd(const RunEnd& end, const Image& after, Figures& figures) {
  Check(figures, Invariant::kNothingLeaked, end.open_handles == 0, "handles are open");
  if (end.disturbance == Disturbance::kFalseAnswer) return;
  const std::string fault = TableFault(end, after);
  Check(figures, Invariant::kEndsByTheTable, fault.empty(), fault);
  if (end.disturbance == Disturbance::kLasting) return;
  const bool exact = IsInstalled(after) || IsBaseline(after);
  const bool nearly = IsNearlyInstalled(after) || IsNearlyBaseline(after);
  // A run that failed before it adopted the journal leaves what it found, even a mixture.
  const bool as_found = end.disturbance != Disturbance::kNone && !end.changed_names;
  Check(figures, Invariant::kEndsWhole, exact || nearly || as_found, "a mixture");
  if (nearly && !exact) ++figures.accepted.removal_came_back;
  CheckLeftovers(end, after, figures);
}

// An empty directory of the target that the installation before did not have; empty text for none.
std::u16string Checker::LeftoverDirectory(const Image& image) const {
  for (auto item = image.upper_bound(target_);
       item != image.end() && item->first.starts_with(target_);) {
    const std::u16string& key = item->first;
    ++item;
    const bool holds_something = item != image.end() && item->first.starts_with(key);
    if (!key.ends_with(u'\\') || holds_something) continue;
    if (!directories_.contains(key) && !IsExempt(key)) return key;
  }
  return {};
}

// A run that is to restore the baseline, and finds it restored, does nothing: what a cut before the
// cleanup left stays.
void Checker::CheckLeftovers(const RunEnd& end, const Image& after, Figures& figures) {
  const bool restored =
      end.entry_point == EntryPoint::kRestoreBaseline && end.found == TransactionPhase::RolledBack;
  if (restored || !end.cleanup_undisturbed) return;
  const bool settled =
      JournalOf(after).phase == TransactionPhase::RolledBack || IsNearlyInstalled(after);
  if (end.disturbance != Disturbance::kNone && !settled) return;
  Check(figures, Invariant::kNoTemporaryLeft, !HasTemporary(after), "a temporary in the target");
  const std::u16string directory = settled ? LeftoverDirectory(after) : u"";
  Check(figures, Invariant::kNoDirectoryLeft, directory.empty(), directory);
}

}  // namespace tolvarine::updater::crash_lab
