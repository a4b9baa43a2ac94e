#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/scenario_runner.h"
#include "journal/journal_text.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Computer;
using simulated::SimulatedUpdate;

constexpr std::string_view kChangedByHand = "changed by hand";

// One thing that befalls a disk between two runs.
struct Corruption {
  std::string name;
  Disturbance disturbance = Disturbance::kNone;
  bool converges = true;
  std::vector<std::u16string> exempt{};  // What it leaves in no known state.
  std::function<void(Computer&)> apply;
  std::uint64_t state = 0;  // Of the disks in the scenario's first run, from 1.

  [[nodiscard]] std::string Text() const { return "damage:" + std::to_string(state) + ":" + name; }
};

Path SlotPath(const SimulatedUpdate& update, int slot) {
  return JoinPath(update.layout.transaction, slot == 0 ? u"journal.0" : u"journal.1");
}

void AddSlotCorruption(std::vector<Corruption>& corruptions, const Path& path, std::string name,
                       std::string text) {
  corruptions.push_back(
      {.name = std::move(name), .apply = [path, text = std::move(text)](Computer& computer) {
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
  for (std::size_t i = 0; i < text->size(); ++i) {
    std::string flipped = *text;
    flipped[i] = static_cast<char>(flipped[i] ^ 1);  // A digit stays one.
    AddSlotCorruption(corruptions, path, "flip byte " + std::to_string(i) + of, std::move(flipped));
    AddSlotCorruption(corruptions, path, "truncate at " + std::to_string(i) + of,
                      text->substr(0, i));
  }
  AddSlotCorruption(corruptions, path, "zeros in place" + of, std::string(text->size(), '\0'));
  corruptions.push_back({.name = "removal" + of,
                         .apply = [path](Computer& computer) { computer.disk.Remove(path); }});
  corruptions.push_back({.name = "another target's record in place" + of,
                         .disturbance = Disturbance::kOnce,
                         .converges = false,
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
  corruptions.push_back({.name = "slots swapped", .apply = [=](Computer& computer) {
                           computer.disk.WriteFile(even, *odd_text);
                           computer.disk.WriteFile(odd, *even_text);
                         }});
  corruptions.push_back({.name = "both slots damaged",
                         .disturbance = Disturbance::kFalseAnswer,
                         .converges = false,
                         .apply = [=](Computer& computer) {
                           computer.disk.WriteFile(even, "");
                           computer.disk.WriteFile(odd, odd_text->substr(1));
                         }});
}

// A damaged baseline copy stops a rollback for good, with every name whole.
void AddBackupCorruptions(const SimulatedUpdate& update, std::vector<Corruption>& corruptions) {
  const Path backup = JoinPath(update.layout.transaction, u"backup");
  for (const auto& [name, content] : update.computer.disk.Tree(backup)) {
    if (name.ends_with(u'\\')) continue;
    const Path path = JoinPath(backup, name);
    corruptions.push_back(
        {.name = "damage of backup " + Shown(name),
         .disturbance = Disturbance::kFalseAnswer,
         .converges = false,
         .apply = [=](Computer& computer) { computer.disk.WriteFile(path, kChangedByHand); }});
  }
}

void AddTargetCorruptions(const SimulatedUpdate& update, std::vector<Corruption>& corruptions) {
  for (const auto& [name, content] : update.plan.baseline) {
    const Path path = update.TargetPath(name);
    corruptions.push_back(
        {.name = "change of target " + Shown(name),
         .disturbance = Disturbance::kFalseAnswer,
         .converges = false,
         .exempt = {path},
         .apply = [=](Computer& computer) { computer.disk.WriteFile(path, kChangedByHand); }});
  }
}

std::vector<Corruption> CorruptionsOf(const SimulatedUpdate& update, std::uint64_t state) {
  std::vector<Corruption> corruptions;
  AddSlotCorruptions(update, 0, corruptions);
  AddSlotCorruptions(update, 1, corruptions);
  AddCorruptionsOfBothSlots(update, corruptions);
  AddBackupCorruptions(update, corruptions);
  AddTargetCorruptions(update, corruptions);
  for (Corruption& corruption : corruptions) corruption.state = state;
  return corruptions;
}

void Try(ScenarioRunner& runner, const Disks& disks, const Corruption& corruption) {
  Computer& computer = runner.computer();
  computer.Restart(disks);
  corruption.apply(computer);
  computer.disks.Settle();
  runner.check().ExemptOnly(corruption.exempt);
  const std::string replay = "--case '" + corruption.Text() + "'";
  const std::size_t first = runner.figures().violations.size();
  const Disks corrupted = computer.disks.volumes;
  // What the corruption itself has damaged is no fault of the run's; but what it left must stay.
  Figures as_corrupted;
  runner.check().CheckState(ImageOf(corrupted), std::nullopt, Disturbance::kLasting, as_corrupted);
  const Disturbance tolerated =
      as_corrupted.violations.empty() ? Disturbance::kLasting : Disturbance::kFalseAnswer;
  const auto check = [&](std::uint64_t, const Disks& now) {
    runner.check().CheckState(ImageOf(now), std::nullopt, tolerated, runner.figures());
  };
  const PlannedRun run{.disturbance = corruption.disturbance};
  const EndedRun ended = runner.CheckedRun(corrupted, run, replay, check);
  runner.Attribute(first, replay);
  if (corruption.converges) runner.Converge(ended.disks, replay);
}

// All that befalls one state in the middle of the slice; without slices, a sample for each state.
CampaignBounds BoundsOfState(const CampaignBounds& bounds, std::uint64_t state,
                             std::uint64_t states) {
  CampaignBounds of_state{.only = bounds.only};
  if (bounds.slices == 1) {
    of_state.cases = std::max<std::uint64_t>(bounds.cases / states, 1);
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
  // What is damaged while it is being removed has met with two accidents at once.
  std::erase_if(states,
                [&](const Disks& disks) { return runner.check().MarkerMoved(ImageOf(disks)); });
  for (std::size_t state = 0; state < states.size(); ++state) {
    const CampaignBounds each = BoundsOfState(bounds, state, states.size());
    runner.computer().Restart(states[state]);
    TryEach(Chosen(CorruptionsOf(runner.update(), state + 1), each, runner.figures()), bounds,
            runner.figures(),
            [&](const Corruption& corruption) { Try(runner, states[state], corruption); });
  }
  return runner.figures();
}

}  // namespace tolvarine::updater::crash_lab
