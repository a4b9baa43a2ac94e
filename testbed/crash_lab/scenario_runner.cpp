#include "crash_lab/scenario_runner.h"

#include <algorithm>
#include <array>

#include "engine/transaction_run.h"
#include "platform/files.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Call;
using simulated::Computer;
using simulated::SimulatedUpdate;

constexpr int kConvergenceRuns = 3;
// How many losses are looked at after the end of a run.
constexpr std::uint64_t kLossesAfterEnd = 64;

std::size_t OpenHandles(Computer& computer) {
  return computer.files().open_handles() + computer.objects().open_handles() +
         computer.objects().open_hashes();
}

// Nothing is disturbed, or one call that writes, flushes, copies or moves fails.
bool LeavesCleanupAlone(const PlannedRun& run) {
  static constexpr std::array kWriting = {Call::MoveFileExW, Call::CopyFileW, Call::WriteFile,
                                          Call::FlushFileBuffers, Call::Fwrite};
  if (run.disturbance == Disturbance::kNone) return true;
  return run.disturbance == Disturbance::kOnce && run.faults.size() == 1 &&
         run.faults.front().times == 1 &&
         std::ranges::find(kWriting, run.faults.front().call) != kWriting.end();
}

bool IsInstalledExit(const RunEnd& end) { return end.exit_code == 0 || end.exit_code == 7; }

// Hides a file of the installation, if it is there.
SimulatedUpdate& Hidden(SimulatedUpdate& update, const std::u16string& file) {
  constexpr std::uint32_t kHidden = 0x2;
  if (update.plan.baseline.contains(file)) {
    update.computer.disk.SetAttributes(update.TargetPath(file),
                                       kHidden | platform::kFileAttributeArchive);
    update.computer.disks.Settle();
  }
  return update;
}

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
    : scenario_(scenario),
      transcript_(transcript),
      update_(scenario.plan),
      checker_(Hidden(update_, scenario.hidden)),
      reader_(update_) {
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
  end.cleanup_undisturbed = LeavesCleanupAlone(run) && !visit_call;
  end.found = checker_.JournalOf(ImageOf(disks)).phase;
  end.log_before = update_.Log();
  before_ = ImageOf(disks);
  if (visit_state) checker_.StartRun(before_, run.disturbance);
  const Image at_start = before_;
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
  end.changed_names = !checker_.SameNames(at_start, ImageOf(computer.disks.volumes));
  return {std::move(end), computer.disks.volumes};
}

EndedRun ScenarioRunner::CheckedRun(const Disks& disks, const PlannedRun& run,
                                    const std::string& replay, const StateVisitor& visit_state,
                                    const CallVisitor& visit_call) {
  std::size_t first = figures_.violations.size();
  const StateVisitor check = [&](std::uint64_t, const Disks& now) {
    CheckState(now, run.disturbance);
  };
  EndedRun ended = Run(disks, run, visit_state ? visit_state : check, visit_call);
  if (visit_state) first = figures_.violations.size();  // The visitor has attributed its own.
  if (transcript_ != nullptr) WriteTranscript(disks, ended);
  if (!ended.end.abnormal) CheckEnd(ended);
  Attribute(first, replay);
  return ended;
}

void ScenarioRunner::CheckEnd(const EndedRun& ended) {
  const Image after = ImageOf(ended.disks);
  checker_.CheckEnd(ended.end, after, figures_);
  const bool checked = ended.end.disturbance != Disturbance::kFalseAnswer;
  if (!checked || !computer().disks.write_through_holds) return;
  const LossSpace space(ended.disks);
  for (std::uint64_t loss = 0; loss < std::min(space.count(), kLossesAfterEnd); ++loss) {
    const Disks disks = AfterCut(ended.disks, space.At(loss));
    const Image left = ImageOf(disks);
    checker_.CheckCutAfterEnd(ended.end, after, left, figures_);
    CheckWorkspace(disks, left, ended.end.disturbance);
  }
}

std::optional<std::uint64_t> ScenarioRunner::CheckState(const Disks& disks,
                                                        Disturbance disturbance) {
  Image now = ImageOf(disks);
  if (disturbance != Disturbance::kFalseAnswer) checker_.CheckChange(before_, now, figures_);
  const std::optional<std::uint64_t> generation = checker_.JournalOf(now).generation;
  checker_.CheckState(now, generation, disturbance, figures_);
  CheckWorkspace(disks, now, disturbance);
  before_ = std::move(now);
  return generation;
}

void ScenarioRunner::CheckWorkspace(const Disks& disks, const Image& image,
                                    Disturbance disturbance) {
  checker_.CheckWorkspace(image, reader_.Read(disks, image), disturbance, figures_);
}

void ScenarioRunner::WriteTranscript(const Disks& before, const EndedRun& ended) {
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
