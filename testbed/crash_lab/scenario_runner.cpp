#include "crash_lab/scenario_runner.h"

#include "engine/transaction_run.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Computer;

constexpr int kConvergenceRuns = 3;

std::size_t OpenHandles(Computer& computer) {
  return computer.files().open_handles() + computer.objects().open_handles() +
         computer.objects().open_hashes();
}

bool IsInstalledExit(const RunEnd& end) { return end.exit_code == 0 || end.exit_code == 7; }

}  // namespace

std::string CallsOf(const Computer& computer) {
  std::string text;
  for (const simulated::CallRecord& call : computer.calls.trace) {
    text.append("  ").append(std::to_string(call.index)).append(" ");
    text.append(simulated::CallName(call.call)).append(" ").append(Shown(call.path)).append("\n");
  }
  return text;
}

ScenarioRunner::ScenarioRunner(const Scenario& scenario, std::string* transcript)
    : scenario_(scenario), transcript_(transcript), update_(scenario.plan), checker_(update_) {
  update_.computer.calls.keep_trace = transcript != nullptr;
  if (scenario_.prepare) scenario_.prepare(update_);
  update_.computer.disks.Settle();
  start_ = update_.computer.disks.volumes;
}

void ScenarioRunner::Enter(const PlannedRun& run, RunEnd& end) {
  ++figures_.runs;
  try {
    if (run.entry_point == EntryPoint::kMainSequence) {
      end.exit_code = update_.Run();
      return;
    }
    TransactionRequest request = update_.Request();
    request.recovery_policy = RecoveryPolicy::RestoreBaseline;
    end.status = RunTransaction(request, nullptr).status;
  } catch (const std::bad_alloc&) {
    end.abnormal = true;
  }
}

EndedRun ScenarioRunner::Run(const Disks& disks, const PlannedRun& run,
                             const StateVisitor& visit_state, const CallVisitor& visit_call) {
  Computer& computer = update_.computer;
  computer.calls.before_call = nullptr;
  computer.MakeCurrent();
  computer.Restart(disks);
  for (const simulated::Fault& fault : run.faults) computer.calls.Inject(fault);
  RunEnd end;
  end.entry_point = run.entry_point;
  end.disturbance = run.disturbance;
  end.log_before = update_.Log();
  std::uint64_t version = computer.disks.version();
  std::uint64_t state = 0;
  if (visit_state || visit_call) {
    computer.calls.before_call = [&](const simulated::CallRecord& call) {
      ++calls_;
      if (visit_state && computer.disks.version() != version) {
        version = computer.disks.version();
        visit_state(++state, computer.disks.volumes);
      }
      if (visit_call) visit_call(call);
    };
  }
  Enter(run, end);
  computer.calls.before_call = nullptr;
  if (visit_state) visit_state(++state, computer.disks.volumes);
  end.boxes = computer.desktop.boxes;
  end.starts = computer.desktop.starts;
  end.log_after = update_.Log();
  end.open_handles = end.abnormal ? 0 : OpenHandles(computer);
  end.changed_names = !checker_.SameNames(ImageOf(disks), ImageOf(computer.disks.volumes));
  return {std::move(end), computer.disks.volumes};
}

EndedRun ScenarioRunner::CheckedRun(const Disks& disks, const PlannedRun& run,
                                    const std::string& replay, const StateVisitor& visit_state,
                                    const CallVisitor& visit_call) {
  EndedRun ended = Run(disks, run, visit_state, visit_call);
  if (transcript_ != nullptr) Tell(disks, ended);
  const std::size_t first = figures_.violations.size();
  if (!ended.end.abnormal) checker_.CheckEnd(ended.end, ImageOf(ended.disks), figures_);
  Attribute(first, replay);
  return ended;
}

std::optional<std::uint64_t> ScenarioRunner::CheckState(const Disks& disks, std::uint64_t state,
                                                        Disturbance disturbance) {
  Image now = ImageOf(disks);
  if (state > 1 && disturbance != Disturbance::kFalseAnswer)
    checker_.CheckChange(before_, now, figures_);
  const std::optional<std::uint64_t> generation = checker_.JournalOf(now).generation;
  checker_.CheckState(now, generation, disturbance, figures_);
  before_ = std::move(now);
  return generation;
}

void ScenarioRunner::Tell(const Disks& before, const EndedRun& ended) {
  transcript_->append("--- a run starts on\n").append(Describe(ImageOf(before)));
  transcript_->append("--- its calls\n").append(CallsOf(update_.computer));
  transcript_->append("--- it ends ");
  transcript_->append(ended.end.abnormal ? "abnormally"
                                         : "with exit code " + std::to_string(ended.end.exit_code));
  transcript_->append(", and leaves\n").append(Describe(ImageOf(ended.disks)));
}

void ScenarioRunner::Converge(Disks disks, const std::string& replay) {
  if (!converged_.insert(Fingerprint(ImageOf(disks))).second) return;
  bool installed = false;
  for (int run = 0; run < kConvergenceRuns && !installed; ++run) {
    EndedRun ended = CheckedRun(disks, {}, replay);
    installed = IsInstalledExit(ended.end);
    disks = std::move(ended.disks);
  }
  const Image image = ImageOf(disks);
  const bool corrupt = checker_.JournalOf(image).IsCorrupt();
  const bool either = scenario_.destination == ExpectedEnding::kInstalledOrBaseline;
  const std::size_t first = figures_.violations.size();
  Check(figures_, Invariant::kConverges,
        installed || corrupt || (either && checker_.IsNearlyBaseline(image)),
        "undisturbed runs do not end installed");
  Attribute(first, replay);
}

void ScenarioRunner::Attribute(std::size_t first, const std::string& replay) {
  for (std::size_t i = first; i < figures_.violations.size(); ++i) {
    figures_.violations[i].replay = "--scenario '" + scenario_.name + "' " + replay;
  }
}

}  // namespace tolvarine::updater::crash_lab
