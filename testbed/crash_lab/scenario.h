// Scenarios: a starting disk, the runs made on it, and what fails in them. A scenario is data; the
// explorer and every campaign take any of them.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulated_update/simulated_update.h"

namespace tolvarine::updater::crash_lab {

// How the updater is entered: from its command line, or at the engine for the policy that the
// command line never chooses.
enum class EntryPoint { kMainSequence, kRestoreBaseline };

// What disturbs a run, and so how much is demanded of it; each value demands less than the one
// before.
enum class Disturbance {
  kNone,
  kOnce,     // One failure: the run must end whole.
  kLasting,  // Failures that stay: every name stays whole, but the names may be of two versions.
  // A query said of something that it is missing, or somebody changed it: every name is whole or
  // missing, and the end is not checked.
  kFalseAnswer,
};

// One run of the updater, with what fails in it.
struct PlannedRun {
  EntryPoint entry_point = EntryPoint::kMainSequence;
  std::vector<simulated::Fault> faults{};
  Disturbance disturbance = Disturbance::kNone;
};

// Where further undisturbed runs must lead in the end.
enum class ExpectedEnding {
  kInstalled,
  // Installed, or the baseline for good: a transaction that was cancelled before its baseline
  // copies were complete cannot be resumed.
  kInstalledOrBaseline,
};

struct Scenario {
  std::string name;
  simulated::UpdatePlan plan;
  // Brings the staged disk to where the exploration starts; may be empty.
  std::function<void(simulated::SimulatedUpdate&)> prepare;
  std::vector<PlannedRun> runs;
  ExpectedEnding destination = ExpectedEnding::kInstalled;
  // Every failure and every act is tried in every round, and all damage at a few states; otherwise
  // a sample.
  bool thorough = false;
  // How many losses of one state are looked at, at most.
  std::uint64_t losses = ~std::uint64_t{0};
  // How many cases of each campaign are tried, at most.
  std::uint64_t cases = ~std::uint64_t{0};
  // A file of the installation that is hidden, if the plan has it.
  std::u16string hidden = u"lib/core.dll";
};

// All of them, in the order of the report.
[[nodiscard]] std::vector<Scenario> AllScenarios();

}  // namespace tolvarine::updater::crash_lab
