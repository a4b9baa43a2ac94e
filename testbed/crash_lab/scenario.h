// What is explored: a starting disk, the runs made on it, and what the computer does meanwhile. A
// scenario is data; everything that explores takes any of them.

#pragma once

#include <functional>
#include <string>
#include <vector>

#include "simulated_update/simulated_update.h"

namespace tolvarine::updater::crash_lab {

// How the updater is entered: from its command line, or, for the policy that its command line never
// chooses, at the engine.
enum class EntryPoint { kMainSequence, kRestoreBaseline };

// How much may be demanded of a run that something was done to.
enum class Disturbance {
  kNone,
  kOnce,     // One failure: the run must end whole.
  kLasting,  // Failures that stay: every name stays whole, but the names may be of two versions.
  kFalseAnswer,  // What is there was said to be missing, or changed meanwhile: safety alone.
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
  // copies were complete cannot go forward any more.
  kInstalledOrBaseline,
};

struct Scenario {
  std::string name;
  simulated::UpdatePlan plan;
  // Brings the staged disk to where the exploration starts; may be empty.
  std::function<void(simulated::SimulatedUpdate&)> prepare;
  std::vector<PlannedRun> runs;
  ExpectedEnding destination = ExpectedEnding::kInstalled;
  // Every failure and every act is tried in every round, and all damage at a few states; otherwise a
  // sample.
  bool thorough = false;
};

// All of them, in the order of the report.
[[nodiscard]] std::vector<Scenario> AllScenarios();

}  // namespace tolvarine::updater::crash_lab
