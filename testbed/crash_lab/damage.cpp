#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/scenario_runner.h"
#include "engine/entry_temporary.h"
#include "journal/journal_store.h"
#include "journal/journal_text.h"
#include "lists/release_path.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Computer;
using simulated::SimulatedUpdate;

constexpr std::size_t kMostPositions = 2000;  // At which a slot is changed.
constexpr std::string_view kChangedByHand = "changed by hand";

// One change of a disk between two runs.
struct Corruption {
  std::string name{};
  Disturbance disturbance = Disturbance::kNone;
  bool converges = true;
  bool must_fail = false;                // The next run must end with exit code 5.
  bool only_read = false;                // The updater is not run on it.
  std::vector<std::u16string> exempt{};  // Paths whose content is not checked.
  std::function<void(Computer&)> apply{};
  std::function<void(Computer&)> repair{};  // Before further runs; may be empty.
  std::uint64_t state = 0;                  // Of the disks in the scenario's first run, from 1.

  [[nodiscard]] std::string Text() const { return "damage:" + std::to_string(state) + ":" + name; }
};

Path SlotPath(const SimulatedUpdate& update, int slot) {
  return JoinPath(update.layout.transaction, slot == 0 ? u"journal.0" : u"journal.1");
}

void AddSlotCorruption(std::vector<Corruption>& corruptions, const Path& path, std::string name,
                       std::string text) {
  corruptions.push_back({.name = std::move(name),
                         .exempt = {path},
                         .apply = [path, text = std::move(text)](Computer& computer) {
                           computer.disk.WriteFile(path, text);
                         }});
}

// Changes a slot only when it is tried: there are many cases, and a slot may be long.
void AddSlotChange(std::vector<Corruption>& corruptions, const Path& path, std::string name,
                   const std::function<void(std::string&)>& change) {
  corruptions.push_back(
      {.name = std::move(name), .exempt = {path}, .apply = [path, change](Computer& computer) {
         std::string text = *computer.disk.ReadFile(path);
         change(text);
         computer.disk.WriteFile(path, text);
       }});
}

// The record of a transaction of another installation, in the same place.
std::string OfAnotherTarget(const std::string& text) {
  std::optional<TransactionJournal> journal = ParseJournal(text);
  if (!journal) return text;
  journal->target = u"C:\\Program Files\\Another";
  return SerializeJournal(*journal);
}

void AddSlotCorruptions(const SimulatedUpdate& update, int slot,
                        std::vector<Corruption>& corruptions) {
  const Path path = SlotPath(update, slot);
  const std::optional<std::string> text = update.computer.disk.ReadFile(path);
  if (!text) return;
  const std::string of = " of slot " + std::to_string(slot);
  // Every byte of a slot of usual length.
  for (std::size_t i = 0; i < text->size(); i += 1 + text->size() / kMostPositions) {
    AddSlotChange(corruptions, path, "flip byte " + std::to_string(i) + of,
                  [i](std::string& bytes) {
                    bytes[i] = static_cast<char>(bytes[i] ^ 1);  // A digit stays one.
                  });
    AddSlotChange(corruptions, path, "truncate at " + std::to_string(i) + of,
                  [i](std::string& bytes) { bytes.resize(i); });
  }
  AddSlotCorruption(corruptions, path, "zeros in place" + of, std::string(text->size(), '\0'));
  corruptions.push_back({.name = "removal" + of,
                         .exempt = {path},
                         .apply = [path](Computer& computer) { computer.disk.Remove(path); }});
  corruptions.push_back({.name = "another target's record in place" + of,
                         .disturbance = Disturbance::kOnce,
                         .converges = false,
                         .exempt = {path},
                         .apply = [path, text = OfAnotherTarget(*text)](Computer& computer) {
                           computer.disk.WriteFile(path, text);
                         }});
}

void AddCorruptionsOfBothSlots(const SimulatedUpdate& update,
                               std::vector<Corruption>& corruptions) {
  const Path even = SlotPath(update, 0);
  const Path odd = SlotPath(update, 1);
  const auto even_text = update.computer.disk.ReadFile(even);
  const auto odd_text = update.computer.disk.ReadFile(odd);
  if (!even_text || !odd_text) return;
  AddSlotCorruption(corruptions, even, "slot 1 twice", *odd_text);
  AddSlotCorruption(corruptions, odd, "slot 0 twice", *even_text);
  corruptions.push_back(
      {.name = "slots swapped", .exempt = {even, odd}, .apply = [=](Computer& computer) {
         computer.disk.WriteFile(even, *odd_text);
         computer.disk.WriteFile(odd, *even_text);
       }});
  corruptions.push_back({.name = "both slots damaged",
                         .disturbance = Disturbance::kFalseAnswer,
                         .converges = false,
                         .exempt = {even, odd},
                         .apply = [=](Computer& computer) {
                           computer.disk.WriteFile(even, "");
                           computer.disk.WriteFile(odd, odd_text->substr(1));
                         }});
}

// Other contents for a file: of another size, and of the same size with one byte changed, far
// behind the first block of a long file, too.
struct OtherContent {
  const char* what;
  std::string content;
};

std::vector<OtherContent> OtherContents(const std::string& content) {
  std::vector<OtherContent> others = {{"rewriting", std::string(kChangedByHand)}};
  if (content.empty()) return others;
  others.push_back({"flip of the first byte", content});
  others.back().content.front() ^= 1;
  others.push_back({"flip of the last byte", content});
  others.back().content.back() ^= 1;
  return others;
}

// `text` names the file in the case's text; the other members of `like` are those of each case.
void AddFileCorruptions(const Path& path, const std::string& content, const std::string& text,
                        const Corruption& like, std::vector<Corruption>& corruptions) {
  for (const OtherContent& other : OtherContents(content)) {
    Corruption corruption = like;
    corruption.name = other.what + (" of " + text);
    corruption.apply = [path, bytes = other.content](Computer& computer) {
      computer.disk.WriteFile(path, bytes);
    };
    corruptions.push_back(std::move(corruption));
  }
}

// A damaged baseline copy stops a rollback for good, with every name whole. A run that still has to
// apply entries proves every copy first, and so changes nothing.
void AddBackupCorruptions(const SimulatedUpdate& update, const JournalLoadResult& loaded,
                          std::vector<Corruption>& corruptions) {
  const Path backup = JoinPath(update.layout.transaction, u"backup");
  const bool must_fail = loaded.journal && (loaded.journal->phase == TransactionPhase::Apply ||
                                            loaded.journal->phase == TransactionPhase::RolledBack);
  for (const auto& [name, content] : update.computer.disk.Tree(backup)) {
    if (name.ends_with(u'\\')) continue;
    const bool is_copy = !name.ends_with(kTemporarySuffix);
    const Path path = JoinPath(backup, name);
    AddFileCorruptions(path, content, "backup " + Shown(name),
                       {.disturbance = Disturbance::kFalseAnswer,
                        .converges = false,
                        .must_fail = must_fail && is_copy,
                        .exempt = {path}},
                       corruptions);
  }
}

// True where the entry's baseline copy is still to be made, from a file that the plan has hashed.
bool IsToBeBackedUp(const JournalLoadResult& loaded, const Path& name) {
  if (!loaded.journal || loaded.journal->phase != TransactionPhase::Backup) return false;
  const auto& entries = loaded.journal->entries;
  for (std::uint64_t i = loaded.journal->backup; i < entries.size(); ++i) {
    if (SamePathKey(entries[i].path, name)) return entries[i].baseline_exists;
  }
  return false;
}

// A file that changes before the plan is made is the baseline itself.
void AddTargetCorruptions(const SimulatedUpdate& update, const JournalLoadResult& loaded,
                          std::vector<Corruption>& corruptions) {
  for (const auto& [name, baseline] : update.plan.baseline) {
    const Path path = update.TargetPath(name);
    const std::optional<std::string> content = update.computer.disk.ReadFile(path);
    if (!content) continue;
    Corruption like{.disturbance = Disturbance::kFalseAnswer,
                    .converges = false,
                    .must_fail = IsToBeBackedUp(loaded, name),
                    .exempt = {path}};
    const bool planned = loaded.journal.has_value();
    if (!planned) {
      like.exempt.push_back(JoinPath(JoinPath(update.layout.transaction, u"backup"), name));
    }
    AddFileCorruptions(path, *content, "target " + Shown(name), like, corruptions);
  }
}

// A release that is not what was authenticated is refused, with every name whole. Once it is
// repaired, the update can be installed.
void AddReleaseCorruptions(const SimulatedUpdate& update, const JournalLoadResult& loaded,
                           std::vector<Corruption>& corruptions) {
  const bool committed = loaded.journal && loaded.journal->phase == TransactionPhase::Committed;
  for (const auto& [name, content] : update.plan.release) {
    const Path path = update.SourcePath(name);
    const auto repair = [path, bytes = content](Computer& computer) {
      computer.disk.WriteFile(path, bytes);
    };
    AddFileCorruptions(path, content, "release " + Shown(name),
                       {.disturbance = Disturbance::kOnce,
                        .must_fail = !committed,
                        .exempt = {path},
                        .repair = repair},
                       corruptions);
  }
}

std::vector<Corruption> CorruptionsOfSlots(const SimulatedUpdate& update) {
  std::vector<Corruption> corruptions;
  AddSlotCorruptions(update, 0, corruptions);
  AddSlotCorruptions(update, 1, corruptions);
  AddCorruptionsOfBothSlots(update, corruptions);
  return corruptions;
}

std::vector<Corruption> CorruptionsOfFiles(const SimulatedUpdate& update) {
  std::vector<Corruption> corruptions;
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  AddBackupCorruptions(update, loaded, corruptions);
  AddTargetCorruptions(update, loaded, corruptions);
  AddReleaseCorruptions(update, loaded, corruptions);
  return corruptions;
}

// Disks on which the updater is not run: they are read alone, at every state.
std::vector<Corruption> OnlyReadCorruptions(const SimulatedUpdate& update) {
  std::vector<Corruption> corruptions;
  const auto add = [&](std::string name, std::vector<std::u16string> exempt,
                       std::function<void(Computer&)> apply) {
    corruptions.push_back({.name = std::move(name),
                           .only_read = true,
                           .exempt = std::move(exempt),
                           .apply = std::move(apply)});
  };
  const inspection::UpdateLayout& layout = update.layout;
  add("a completed marker beside the pending one", {}, [&layout](Computer& computer) {
    computer.disk.WriteFile(layout.completed_marker, simulated::kPendingContent);
  });
  add("no marker", {},
      [&layout](Computer& computer) { computer.disk.Remove(layout.pending_marker); });
  simulated::FileSet files = update.plan.baseline;
  files.insert(update.plan.release.begin(), update.plan.release.end());
  for (const auto& [name, content] : files) {
    const Path path = update.TargetPath(name);
    add("foreign content of " + Shown(name), {path},
        [path](Computer& computer) { computer.disk.WriteFile(path, kChangedByHand); });
  }
  return corruptions;
}

// The run is checked for what it adds to the corruption: what it finds broken may stay so.
void Try(ScenarioRunner& runner, const Disks& disks, const Corruption& corruption) {
  Computer& computer = runner.computer();
  computer.Restart(disks);
  runner.check().ExemptOnly(corruption.exempt);
  corruption.apply(computer);
  computer.disks.Settle();
  const std::string replay = "--case '" + corruption.Text() + "'";
  std::size_t first = runner.figures().violations.size();
  runner.CheckWorkspace(computer.disks.volumes, ImageOf(computer.disks.volumes),
                        corruption.disturbance);
  runner.Attribute(first, replay);
  if (corruption.only_read) return;
  const EndedRun ended =
      runner.CheckedRun(computer.disks.volumes, {.disturbance = corruption.disturbance}, replay);
  first = runner.figures().violations.size();
  Check(runner.figures(), Invariant::kEndsByTheTable,
        !corruption.must_fail || ended.end.exit_code == 5, "corruption is not noticed");
  runner.Attribute(first, replay);
  if (!corruption.converges) return;
  if (corruption.repair) {
    computer.Restart(ended.disks);
    corruption.repair(computer);
    computer.disks.Settle();
  }
  runner.Converge(computer.disks.volumes, replay);
}

// With slices, every case of one state in the middle of the slice; without, a sample of each state,
// half of it changes of slots, which are many more than the others.
CampaignBounds BoundsOfState(const CampaignBounds& bounds, std::uint64_t state,
                             std::uint64_t states) {
  CampaignBounds of_state{.only = bounds.only};
  if (bounds.slices == 1) {
    of_state.cases = std::max<std::uint64_t>(bounds.cases / (2 * states), 1);
    of_state.seed = bounds.seed + state;
  } else if (state != states * (2 * bounds.slice + 1) / (2 * bounds.slices)) {
    of_state.cases = 0;
  }
  return of_state;
}

}  // namespace

Figures Damage(const Scenario& scenario, const CampaignBounds& bounds) {
  ScenarioRunner runner(scenario, bounds.transcript);
  std::vector<Disks> states;
  runner.Run(runner.start(), scenario.runs.front(),
             [&](std::uint64_t, const Disks& disks) { states.push_back(disks); });
  // Damage during the final removal is two accidents at once.
  std::erase_if(states,
                [&](const Disks& disks) { return runner.check().MarkerMoved(ImageOf(disks)); });
  for (std::size_t state = 0; state < states.size(); ++state) {
    const CampaignBounds each = BoundsOfState(bounds, state, states.size());
    runner.computer().Restart(states[state]);
    // Collected before the first is tried, which changes the disks.
    std::array groups = {CorruptionsOfSlots(runner.update()), CorruptionsOfFiles(runner.update()),
                         OnlyReadCorruptions(runner.update())};
    CampaignBounds only_read{.only = bounds.only};
    if (state % bounds.slices != bounds.slice) only_read.cases = 0;
    const std::array bounds_of_groups = {each, each, only_read};
    for (std::size_t group = 0; group < groups.size(); ++group) {
      for (Corruption& corruption : groups[group]) corruption.state = state + 1;
      TryEach(Chosen(std::move(groups[group]), bounds_of_groups[group], runner.figures()), bounds,
              runner.figures(),
              [&](const Corruption& corruption) { Try(runner, states[state], corruption); });
    }
  }
  return runner.figures();
}

}  // namespace tolvarine::updater::crash_lab
