// The explorer: cuts the power at every call of a scenario, builds the disks that the model admits,
// starts the updater on each again and holds the invariants against all of it.
//
// The power is cut before a call, so a cut at a call that changed nothing on any disk leaves what
// the cut before it left: the explorer counts it, and looks at the disks once, per state. A state
// is what the disks are between two changes. Disks that were met before are not checked or run
// again.

#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "crash_lab/scenario_runner.h"

namespace tolvarine::updater::crash_lab {

// Where the power is cut in a run, and what it takes: a state and a loss, by their numbers.
struct Cut {
  std::uint64_t state = 0;
  std::uint64_t loss = 0;
};

// The way to a disk: a planned run of the scenario, a cut in it, and one cut in each of the
// recoveries that follow. Written as "0:12.3/45.6".
struct CutSequence {
  std::size_t run = 0;
  std::vector<Cut> cuts;

  [[nodiscard]] std::string Text() const;
  [[nodiscard]] static std::optional<CutSequence> Parse(std::string_view text);
};

struct Bounds {
  // Losses looked at in one state of a planned run: all up to this number, else so many by the
  // seed.
  std::uint64_t losses = 256;
  // Of the disks after a first cut, on how many the recovery is cut at every call of it; and how
  // many losses are looked at in each of its states.
  std::uint64_t second_cuts = 40;
  std::uint64_t second_losses = 4;
  // Of the disks after a second cut, on how many the updater is started, with a third cut at
  // random.
  std::uint64_t third_cuts = 200;
  // The power is not cut before this state of a planned run.
  std::uint64_t first_state = 0;
};

class Explorer {
 public:
  // `weak` explores the weaker model: a write-through rename returns before it is on the medium.
  // A `transcript` takes what a replay met.
  Explorer(const Scenario& scenario, const Bounds& bounds, std::uint64_t seed, bool weak,
           std::string* transcript = nullptr);

  // Explores until the bounds are reached.
  Figures Explore();

  // Follows one sequence and tells it in the transcript: the calls of each run up to its cut, the disk
  // before and after.
  Figures Replay(const CutSequence& sequence);

 private:
  // A disk that a cut left, and the way to it.
  struct SurvivingDisks {
    Disks disks;
    CutSequence sequence;
  };

  void LookAtState(const Disks& disks, std::uint64_t state, std::uint64_t losses,
                   Disturbance disturbance, const CutSequence& sequence,
                   std::vector<SurvivingDisks>& left);
  void LookAtLoss(Disks disks, std::optional<std::uint64_t> generation, Disturbance disturbance,
                  const CutSequence& sequence, std::vector<SurvivingDisks>& left);
  std::vector<SurvivingDisks> CutPlannedRun(Disks& disks, std::size_t run);
  std::vector<SurvivingDisks> CutRecovery(const SurvivingDisks& survivor);
  void RecoverWithRandomCut(const SurvivingDisks& survivor);
  void Recover(const SurvivingDisks& survivor);
  void CheckRecovery(const SurvivingDisks& survivor, const RunEnd& end);
  [[nodiscard]] PlannedRun Again(const CutSequence& sequence) const;
  void ReplayCut(const CutSequence& sequence, std::size_t cut, Disks& disks);

  const Scenario& scenario_;
  Bounds bounds_;
  std::string* const transcript_;
  ScenarioRunner runner_;
  std::mt19937_64 random_;
  std::set<std::uint64_t> seen_;  // Disks that the updater was, or will be, started on.
  bool strict_;                   // The medium keeps its word.
};

}  // namespace tolvarine::updater::crash_lab
