// The machine on which a scenario is run again and again: it boots from any disks, runs the
// updater, shows every state of the disks on the way, and holds the invariants against what it
// sees.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "crash_lab/judge.h"
#include "crash_lab/report.h"
#include "crash_lab/scenario.h"

namespace tolvarine::updater::crash_lab {

// Called when the disks have changed since the call before, with the number of the state (from 1),
// and once more when the run has ended.
using StateVisitor = std::function<void(std::uint64_t state, const Disks& disks)>;

// Called before every call of a run. May act on the world, or throw into the program.
using CallVisitor = std::function<void(const simulated::CallRecord& call)>;

struct EndedRun {
  RunEnd end;
  Disks disks;
};

// The calls that the world has kept, a line for each.
[[nodiscard]] std::string CallsOf(const simulated::World& world);

class Machine {
 public:
  // Tells its judged runs in `story`, if there is one: their calls, the disk before and after.
  explicit Machine(const Scenario& scenario, std::string* story = nullptr);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // How many calls the runs with a visitor have made.
  [[nodiscard]] std::uint64_t calls() const { return calls_; }

  // The disks on which the exploration starts.
  [[nodiscard]] const Disks& start() const { return start_; }
  [[nodiscard]] simulated::SimulatedUpdate& update() { return update_; }
  [[nodiscard]] simulated::World& world() { return update_.world; }
  [[nodiscard]] Judge& judge() { return judge_; }
  [[nodiscard]] Figures& figures() { return figures_; }

  // One run from `disks` to its end. An exception that leaves the program ends it abnormally, as on
  // Windows; the disks stay as they then are.
  EndedRun Run(const Disks& disks, const PlannedRun& run, const StateVisitor& visit_state = nullptr,
               const CallVisitor& visit_call = nullptr);

  // The same, judged at its end. Violations are marked with `replay`.
  EndedRun JudgedRun(const Disks& disks, const PlannedRun& run, const std::string& replay,
                     const StateVisitor& visit_state = nullptr,
                     const CallVisitor& visit_call = nullptr);

  // Holds the invariants against a state of the run as the program sees it, and against the change
  // from the state before, if that was judged too. Returns the generation that a load would find.
  std::optional<std::uint64_t> JudgeState(const Disks& disks, std::uint64_t state,
                                          Disturbance disturbance);

  // Makes undisturbed runs until there is nothing left to do, and judges where they lead.
  void Converge(Disks disks, const std::string& replay);

  // Marks the violations from number `first` on with the way to them.
  void Attribute(std::size_t first, const std::string& replay);

 private:
  void Enter(const PlannedRun& run, RunEnd& end);
  void Tell(const Disks& before, const EndedRun& ended);

  const Scenario& scenario_;
  std::string* const story_;
  simulated::SimulatedUpdate update_;
  Judge judge_;
  Figures figures_;
  std::uint64_t calls_ = 0;
  Disks start_;
  Image before_;                       // The state that was judged last.
  std::set<std::uint64_t> converged_;  // Disks from which undisturbed runs have been followed.
};

}  // namespace tolvarine::updater::crash_lab
