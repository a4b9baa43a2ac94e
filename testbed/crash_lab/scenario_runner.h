// The runner on which a scenario is run again and again: it boots from any disks, runs the
// updater, shows every state of the disks on the way, and holds the invariants against what it
// sees.

#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "crash_lab/checker.h"
#include "crash_lab/report.h"
#include "crash_lab/scenario.h"

namespace tolvarine::updater::crash_lab {

// Called when the disks have changed since the call before, with the number of the state (from 1),
// and once more when the run has ended.
using StateVisitor = std::function<void(std::uint64_t state, const Disks& disks)>;

// Called before every call of a run. May act on the computer, or throw into the program.
using CallVisitor = std::function<void(const simulated::CallRecord& call)>;

struct EndedRun {
  RunEnd end;
  Disks disks;
};

// The calls that the computer has kept, a line for each.
[[nodiscard]] std::string CallsOf(const simulated::Computer& computer);

class ScenarioRunner {
 public:
  // Tells its checked runs in `transcript`, if there is one: their calls, the disk before and after.
  explicit ScenarioRunner(const Scenario& scenario, std::string* transcript = nullptr);
  ScenarioRunner(const ScenarioRunner&) = delete;
  ScenarioRunner& operator=(const ScenarioRunner&) = delete;

  // How many calls the runs with a visitor have made.
  [[nodiscard]] std::uint64_t calls() const { return calls_; }

  // The disks on which the exploration starts.
  [[nodiscard]] const Disks& start() const { return start_; }
  [[nodiscard]] simulated::SimulatedUpdate& update() { return update_; }
  [[nodiscard]] simulated::Computer& computer() { return update_.computer; }
  [[nodiscard]] Checker& check() { return checker_; }
  [[nodiscard]] Figures& figures() { return figures_; }

  // One run from `disks` to its end. An exception that leaves the program ends it abnormally, as on
  // AcceptedOutcomes; the disks stay as they then are.
  EndedRun Run(const Disks& disks, const PlannedRun& run, const StateVisitor& visit_state = nullptr,
               const CallVisitor& visit_call = nullptr);

  // The same, checked at its end. Violations are marked with `replay`.
  EndedRun CheckedRun(const Disks& disks, const PlannedRun& run, const std::string& replay,
                      const StateVisitor& visit_state = nullptr,
                      const CallVisitor& visit_call = nullptr);

  // Holds the invariants against a state of the run as the program sees it, and against the change
  // from the state before, if that was checked too. Returns the generation that a load would find.
  std::optional<std::uint64_t> CheckState(const Disks& disks, std::uint64_t state,
                                          Disturbance disturbance);

  // Makes undisturbed runs until there is nothing left to do, and checks where they lead.
  void Converge(Disks disks, const std::string& replay);

  // Marks the violations from number `first` on with the way to them.
  void Attribute(std::size_t first, const std::string& replay);

 private:
  void Enter(const PlannedRun& run, RunEnd& end);
  void Tell(const Disks& before, const EndedRun& ended);

  const Scenario& scenario_;
  std::string* const transcript_;
  simulated::SimulatedUpdate update_;
  Checker checker_;
  Figures figures_;
  std::uint64_t calls_ = 0;
  Disks start_;
  Image before_;                       // The state that was checked last.
  std::set<std::uint64_t> converged_;  // Disks from which undisturbed runs have been followed.
};

}  // namespace tolvarine::updater::crash_lab
