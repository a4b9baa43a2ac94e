#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/explorer.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Call;
using simulated::Fault;

constexpr std::string_view kCasePrefix = "fault-and-cuts:";
constexpr std::uint32_t kAccessDenied = 5;

struct Case {
  Fault fault;
  std::uint64_t state = 0;  // The last one before the failing call.

  [[nodiscard]] std::string Text() const {
    return std::string(kCasePrefix) + std::string(CallName(fault.call)) + ":" +
           std::to_string(fault.first);
  }
};

bool ChangesDisk(Call call) {
  static constexpr std::array kChanging = {Call::FlushFileBuffers,
                                           Call::MoveFileExW,
                                           Call::CopyFileW,
                                           Call::WriteFile,
                                           Call::Fwrite,
                                           Call::DeleteFileW,
                                           Call::SetFileInformationByHandle};
  return std::ranges::find(kChanging, call) != kChanging.end();
}

std::vector<Case> AllCases(const Scenario& scenario) {
  ScenarioRunner runner(scenario);
  std::vector<Case> cases;
  std::uint64_t last_state = 0;
  runner.Run(
      runner.start(), scenario.runs.front(),
      [&](std::uint64_t state, const Disks&) { last_state = state; },
      [&](const simulated::CallRecord& call) {
        if (!ChangesDisk(call.call)) return;
        cases.push_back(
            {{.call = call.call, .first = call.occurrence, .code = kAccessDenied}, last_state});
      });
  return cases;
}

// The scenario's own faults stay.
Scenario WithFault(Scenario scenario, const Fault& fault) {
  PlannedRun run = scenario.runs.front();
  run.disturbance = run.faults.empty() ? Disturbance::kOnce : Disturbance::kLasting;
  run.faults.push_back(fault);
  scenario.runs = {run};
  return scenario;
}

// The text of a case with its cuts is "fault-and-cuts:CALL:OCCURRENCE@CUTS".
void NameCase(Figures& figures, const Case& tried) {
  static constexpr std::string_view kOption = "--case ";
  for (Violation& violation : figures.violations) {
    const std::size_t option = violation.replay.find(kOption);
    if (option == std::string::npos) continue;
    violation.replay.insert(option + kOption.size(), tried.Text() + "@");
  }
}

}  // namespace

Figures FailAndCut(const Scenario& scenario, const CampaignBounds& bounds) {
  Figures figures;
  CampaignBounds chosen = bounds;
  const std::size_t at = bounds.only.find('@');
  chosen.only = bounds.only.substr(0, at);
  std::optional<CutSequence> cuts;
  if (at != std::string::npos) cuts = CutSequence::Parse(bounds.only.substr(at + 1));
  TryEach(Chosen(AllCases(scenario), chosen, figures), chosen, figures, [&](const Case& tried) {
    // Only first cuts, behind the fault; those before it are the explorer's own.
    const Bounds first_cuts = {
        .losses = 16, .second_cuts = 0, .third_cuts = 0, .first_state = tried.state};
    const Scenario with_fault = WithFault(scenario, tried.fault);
    Explorer explorer(with_fault, first_cuts, bounds.seed, false, bounds.transcript);
    Figures found = cuts ? explorer.Replay(*cuts).value_or(Figures{}) : explorer.Explore();
    NameCase(found, tried);
    figures.Add(found);
  });
  return figures;
}

}  // namespace tolvarine::updater::crash_lab
