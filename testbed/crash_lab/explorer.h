// The explorer: cuts the power at every call of a scenario's runs, builds the disks that the model
// of storage admits, runs the updater on each of them, and checks the invariants on the way.
//
// The power is cut before a call. A cut at a call before which nothing has changed on any disk
// leaves what the cut before it left. So the explorer cuts once for each state: what the disks are
// between two changes. Disks that were met before are not checked or run again.

#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "crash_lab/scenario_runner.h"

namespace tolvarine::updater::crash_lab {

// A power cut: the state of the disks in which it comes, from 1, and its loss by its number in the
// loss space of that state.
struct Cut {
  std::uint64_t state = 0;
  std::uint64_t loss = 0;
};

// How a disk came about: the number of a planned run, a cut in it, and one cut in each of the
// recoveries that follow. Its text is like "0:12.3/45.6".
struct CutSequence {
  std::size_t run = 0;
  std::vector<Cut> cuts;

  [[nodiscard]] std::string Text() const;
  // Takes nothing but what Text() gives.
  [[nodiscard]] static std::optional<CutSequence> Parse(std::string_view text);
};

struct Bounds {
  // Losses tried in one state of a planned run: all of them up to this number, otherwise a sample
  // of this size by the seed.
  std::uint64_t losses = 256;
  // How many disks after a first cut have their recovery cut at every call, and how many losses
  // are tried in each of its states.
  std::uint64_t second_cuts = 40;
  std::uint64_t second_losses = 4;
  // How many disks after a second cut are recovered from, with a third cut at random.
  std::uint64_t third_cuts = 200;
  // The power is not cut before this state of a planned run.
  std::uint64_t first_state = 0;
};

class Explorer {
 public:
  // `weak` selects the weaker model: a write-through rename returns before the medium has it.
  // Replay describes in `transcript` what it does.
  Explorer(const Scenario& scenario, const Bounds& bounds, std::uint64_t seed, bool weak,
           std::string* transcript = nullptr);

  // Explores up to the bounds.
  Figures Explore();

  // Repeats one sequence and writes the transcript: the calls of each run up to its cut, the disk
  // before and after. Nothing where the scenario has no such run, state or loss.
  std::optional<Figures> Replay(const CutSequence& sequence);

 private:
  // Disks that a cut left, and how they came about.
  struct SurvivingDisks {
    Disks disks;
    CutSequence sequence;
  };

  // A state of a run, as a cut meets it; its disks apart.
  struct CutPoint {
    std::uint64_t state = 0;
    std::optional<std::uint64_t> generation;  // That a load must find after the cut, or the next.
    Disturbance disturbance = Disturbance::kNone;
  };

  CutPoint CheckLive(std::uint64_t state, const Disks& disks, Disturbance disturbance,
                     const CutSequence& sequence);
  void CutAt(const CutPoint& point, const Disks& disks, std::uint64_t losses,
             const CutSequence& sequence, std::vector<SurvivingDisks>& left);
  void CheckAfterCut(Disks disks, const CutPoint& point, const CutSequence& sequence,
                     std::vector<SurvivingDisks>& left);
  std::vector<SurvivingDisks> CutPlannedRun(Disks& disks, std::size_t run);
  std::vector<SurvivingDisks> CutRecovery(const SurvivingDisks& survivor);
  void RecoverWithRandomCut(const SurvivingDisks& survivor);
  void Recover(const SurvivingDisks& survivor);
  void CheckRecovery(const SurvivingDisks& survivor, const RunEnd& end);
  [[nodiscard]] PlannedRun RecoveryRun(const CutSequence& sequence) const;
  [[nodiscard]] std::string ReplayOf(const CutSequence& sequence) const;
  bool ReplayCut(const CutSequence& sequence, std::size_t cut, Disks& disks);

  const Scenario& scenario_;
  Bounds bounds_;
  bool weak_;
  std::string* const transcript_;
  ScenarioRunner runner_;
  std::mt19937_64 random_;
  // By fingerprint: disks that were checked after a cut, each with what its check depends on, and
  // disks that a recovery starts or started on.
  std::set<std::tuple<std::uint64_t, std::optional<std::uint64_t>, Disturbance>> checked_;
  std::set<std::uint64_t> recovered_;
};

}  // namespace tolvarine::updater::crash_lab
