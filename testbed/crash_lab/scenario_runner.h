// Runs a scenario again and again: starts the computer on any disks, runs the updater, passes every
// state of the disks to a visitor, and checks the invariants.

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
#include "crash_lab/workspace_reader.h"

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

// The calls in the computer's trace, a line for each.
[[nodiscard]] std::string CallsOf(const simulated::Computer& computer);

class ScenarioRunner {
 public:
  // Writes its checked runs to `transcript`, if there is one: calls, the disk before and after.
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

  // One run from `disks` to its end. A bad_alloc that leaves the program ends the run abnormally;
  // the disks stay as they then are.
  EndedRun Run(const Disks& disks, const PlannedRun& run, const StateVisitor& visit_state = nullptr,
               const CallVisitor& visit_call = nullptr);

  // The same, with its end checked, and what a power cut directly after it leaves. Without a
  // visitor of its own, every state is checked, too. Violations get `replay` as the way to them.
  EndedRun CheckedRun(const Disks& disks, const PlannedRun& run, const std::string& replay,
                      const StateVisitor& visit_state = nullptr,
                      const CallVisitor& visit_call = nullptr);

  // Checks a state of the run as the program sees it, and the change from the state that was
  // checked before it, or from the start of the run. Returns the generation that a load finds.
  std::optional<std::uint64_t> CheckState(const Disks& disks, Disturbance disturbance);

  // Checks what the application's library says of these disks, whose image is given.
  void CheckWorkspace(const Disks& disks, const Image& image, Disturbance disturbance);

  // Makes undisturbed runs until one installs the update, at most three, and checks their ends.
  void Converge(Disks disks, const std::string& replay);

  // Gives the violations from number `first` on the way to them.
  void Attribute(std::size_t first, const std::string& replay);

 private:
  void Enter(const PlannedRun& run, RunEnd& end);
  void CheckEnd(const EndedRun& ended);
  void WriteTranscript(const Disks& before, const EndedRun& ended);

  const Scenario& scenario_;
  std::string* const transcript_;
  simulated::SimulatedUpdate update_;
  Checker checker_;
  WorkspaceReader reader_;
  Figures figures_;
  std::uint64_t calls_ = 0;
  Disks start_;
  Image before_;                       // The state that was checked last, or the start of the run.
  std::set<std::uint64_t> converged_;  // Disks from which undisturbed runs have been followed.
};

}  // namespace tolvarine::updater::crash_lab
