#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/machine.h"
#include "journal/journal_text.h"
#include "platform/simulated/file_system.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::SimulatedUpdate;
using simulated::World;

constexpr std::string_view kChangedByHand = "changed by hand";

// One thing that befalls a disk between two runs.
struct Blow {
  std::string name;
  Disturbance disturbance = Disturbance::kNone;
  bool converges = true;
  std::vector<std::u16string> exempt{};  // What it leaves in no known state.
  std::function<void(World&)> strike;
  std::uint64_t state = 0;  // Of the disks in the scenario's first run, from 1.

  [[nodiscard]] std::string Text() const { return "damage:" + std::to_string(state) + ":" + name; }
};

Path SlotPath(const SimulatedUpdate& update, int slot) {
  return JoinPath(update.layout.transaction, slot == 0 ? u"journal.0" : u"journal.1");
}

void AddSlotBlow(std::vector<Blow>& blows, const Path& path, std::string name, std::string text) {
  blows.push_back({.name = std::move(name), .strike = [path, text = std::move(text)](World& world) {
                     world.WriteFile(path, text);
                   }});
}

// The record of a transaction of another installation, in the same place.
std::string OfAnotherTarget(const std::string& text) {
  std::optional<TransactionJournal> journal = ParseJournal(text);
  if (!journal) return text;
  journal->target = u"C:\\Program Files\\Another";
  return SerializeJournal(*journal);
}

void AddBlowsToSlot(const SimulatedUpdate& update, int slot, std::vector<Blow>& blows) {
  const Path path = SlotPath(update, slot);
  const std::optional<std::string> text = update.world.ReadFile(path);
  if (!text) return;
  const std::string of = " of slot " + std::to_string(slot);
  for (std::size_t i = 0; i < text->size(); ++i) {
    std::string flipped = *text;
    flipped[i] = static_cast<char>(flipped[i] ^ 1);  // A digit stays one.
    AddSlotBlow(blows, path, "flip byte " + std::to_string(i) + of, std::move(flipped));
    AddSlotBlow(blows, path, "truncate at " + std::to_string(i) + of, text->substr(0, i));
  }
  AddSlotBlow(blows, path, "zeros in place" + of, std::string(text->size(), '\0'));
  blows.push_back({.name = "removal" + of, .strike = [path](World& world) { world.Remove(path); }});
  blows.push_back({.name = "another target's record in place" + of,
                   .disturbance = Disturbance::kOnce,
                   .converges = false,
                   .strike = [path, text = OfAnotherTarget(*text)](World& world) {
                     world.WriteFile(path, text);
                   }});
}

void AddBlowsToBothSlots(const SimulatedUpdate& update, std::vector<Blow>& blows) {
  const Path even = SlotPath(update, 0);
  const Path odd = SlotPath(update, 1);
  const auto even_text = update.world.ReadFile(even);
  const auto odd_text = update.world.ReadFile(odd);
  if (!even_text || !odd_text) return;
  AddSlotBlow(blows, even, "slot 1 twice", *odd_text);
  AddSlotBlow(blows, odd, "slot 0 twice", *even_text);
  blows.push_back({.name = "slots swapped", .strike = [=](World& world) {
                     world.WriteFile(even, *odd_text);
                     world.WriteFile(odd, *even_text);
                   }});
  blows.push_back({.name = "both slots damaged",
                   .disturbance = Disturbance::kLie,
                   .converges = false,
                   .strike = [=](World& world) {
                     world.WriteFile(even, "");
                     world.WriteFile(odd, odd_text->substr(1));
                   }});
}

// A damaged baseline copy stops a rollback for good, with every name whole.
void AddBlowsToBackup(const SimulatedUpdate& update, std::vector<Blow>& blows) {
  const Path backup = JoinPath(update.layout.transaction, u"backup");
  for (const auto& [name, content] : update.world.Tree(backup)) {
    if (name.ends_with(u'\\')) continue;
    const Path path = JoinPath(backup, name);
    blows.push_back({.name = "damage of backup " + Shown(name),
                     .disturbance = Disturbance::kLie,
                     .converges = false,
                     .strike = [=](World& world) { world.WriteFile(path, kChangedByHand); }});
  }
}

void AddBlowsToTarget(const SimulatedUpdate& update, std::vector<Blow>& blows) {
  for (const auto& [name, content] : update.plan.baseline) {
    const Path path = update.TargetPath(name);
    blows.push_back({.name = "change of target " + Shown(name),
                     .disturbance = Disturbance::kLie,
                     .converges = false,
                     .exempt = {path},
                     .strike = [=](World& world) { world.WriteFile(path, kChangedByHand); }});
  }
}

std::vector<Blow> BlowsTo(const SimulatedUpdate& update, std::uint64_t state) {
  std::vector<Blow> blows;
  AddBlowsToSlot(update, 0, blows);
  AddBlowsToSlot(update, 1, blows);
  AddBlowsToBothSlots(update, blows);
  AddBlowsToBackup(update, blows);
  AddBlowsToTarget(update, blows);
  for (Blow& blow : blows) blow.state = state;
  return blows;
}

void Try(Machine& machine, const Disks& disks, const Blow& blow) {
  World& world = machine.world();
  world.Boot(disks);
  blow.strike(world);
  world.Settle();
  machine.judge().ExemptOnly(blow.exempt);
  const std::string replay = "--case '" + blow.Text() + "'";
  const std::size_t first = machine.figures().violations.size();
  const Disks struck = world.volumes();
  // What the blow itself has damaged is no fault of the run's; but what it left must stay.
  Figures as_struck;
  machine.judge().AtMoment(ImageOf(struck), std::nullopt, Disturbance::kLasting, as_struck);
  const Disturbance tolerated =
      as_struck.violations.empty() ? Disturbance::kLasting : Disturbance::kLie;
  const auto judge = [&](std::uint64_t, const Disks& now) {
    machine.judge().AtMoment(ImageOf(now), std::nullopt, tolerated, machine.figures());
  };
  const PlannedRun run{.disturbance = blow.disturbance};
  const EndedRun ended = machine.JudgedRun(struck, run, replay, judge);
  machine.Attribute(first, replay);
  if (blow.converges) machine.Converge(ended.disks, replay);
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
  Machine machine(scenario, bounds.story);
  std::vector<Disks> states;
  machine.Run(machine.start(), scenario.runs.front(),
              [&](std::uint64_t, const Disks& disks) { states.push_back(disks); });
  // What is damaged while it is being removed has met with two accidents at once.
  std::erase_if(states,
                [&](const Disks& disks) { return machine.judge().MarkerMoved(ImageOf(disks)); });
  for (std::size_t state = 0; state < states.size(); ++state) {
    const CampaignBounds each = BoundsOfState(bounds, state, states.size());
    machine.world().Boot(states[state]);
    TryEach(Chosen(BlowsTo(machine.update(), state + 1), each, machine.figures()), bounds,
            machine.figures(), [&](const Blow& blow) { Try(machine, states[state], blow); });
  }
  return machine.figures();
}

}  // namespace tolvarine::updater::crash_lab
