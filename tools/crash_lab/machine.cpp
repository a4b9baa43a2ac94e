#include "crash_lab/machine.h"

#include "engine/transaction_run.h"
#include "platform/simulated/file_system.h"
#include "platform/simulated/objects.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::World;

constexpr int kConvergenceRuns = 3;

std::size_t OpenHandles(World& world) {
  return world.files().open_handles() + world.objects().open_handles() +
         world.objects().open_hashes();
}

bool IsInstalledExit(const RunEnd& end) { return end.exit_code == 0 || end.exit_code == 7; }

}  // namespace

std::string CallsOf(const World& world) {
  std::string text;
  for (const simulated::CallRecord& call : world.trace) {
    text.append("  ").append(std::to_string(call.index)).append(" ");
    text.append(simulated::CallName(call.call)).append(" ").append(Shown(call.path)).append("\n");
  }
  return text;
}

Machine::Machine(const Scenario& scenario, std::string* story)
    : scenario_(scenario), story_(story), update_(scenario.plan), judge_(update_) {
  update_.world.keep_trace = story != nullptr;
  if (scenario_.prepare) scenario_.prepare(update_);
  update_.world.Settle();
  start_ = update_.world.volumes();
}

void Machine::Enter(const PlannedRun& run, RunEnd& end) {
  ++figures_.runs;
  try {
    if (run.entrance == Entrance::kMainSequence) {
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

EndedRun Machine::Run(const Disks& disks, const PlannedRun& run, const StateVisitor& visit_state,
                      const CallVisitor& visit_call) {
  World& world = update_.world;
  world.before_call = nullptr;
  world.MakeCurrent();
  world.Boot(disks);
  for (const simulated::Fault& fault : run.faults) world.Plan(fault);
  RunEnd end;
  end.entrance = run.entrance;
  end.disturbance = run.disturbance;
  end.log_before = update_.Log();
  std::uint64_t version = world.disk_version();
  std::uint64_t state = 0;
  if (visit_state || visit_call) {
    world.before_call = [&](const simulated::CallRecord& call) {
      ++calls_;
      if (visit_state && world.disk_version() != version) {
        version = world.disk_version();
        visit_state(++state, world.volumes());
      }
      if (visit_call) visit_call(call);
    };
  }
  Enter(run, end);
  world.before_call = nullptr;
  if (visit_state) visit_state(++state, world.volumes());
  end.boxes = world.boxes;
  end.starts = world.starts;
  end.log_after = update_.Log();
  end.open_handles = end.abnormal ? 0 : OpenHandles(world);
  end.changed_names = !judge_.SameNames(ImageOf(disks), ImageOf(world.volumes()));
  return {std::move(end), world.volumes()};
}

EndedRun Machine::JudgedRun(const Disks& disks, const PlannedRun& run, const std::string& replay,
                            const StateVisitor& visit_state, const CallVisitor& visit_call) {
  EndedRun ended = Run(disks, run, visit_state, visit_call);
  if (story_ != nullptr) Tell(disks, ended);
  const std::size_t first = figures_.violations.size();
  if (!ended.end.abnormal) judge_.AtEnd(ended.end, ImageOf(ended.disks), figures_);
  Attribute(first, replay);
  return ended;
}

std::optional<std::uint64_t> Machine::JudgeState(const Disks& disks, std::uint64_t state,
                                                 Disturbance disturbance) {
  Image now = ImageOf(disks);
  if (state > 1 && disturbance != Disturbance::kLie) judge_.AtChange(before_, now, figures_);
  const std::optional<std::uint64_t> generation = judge_.JournalOf(now).generation;
  judge_.AtMoment(now, generation, disturbance, figures_);
  before_ = std::move(now);
  return generation;
}

void Machine::Tell(const Disks& before, const EndedRun& ended) {
  story_->append("--- a run starts on\n").append(Describe(ImageOf(before)));
  story_->append("--- its calls\n").append(CallsOf(update_.world));
  story_->append("--- it ends ");
  story_->append(ended.end.abnormal ? "abnormally"
                                    : "with exit code " + std::to_string(ended.end.exit_code));
  story_->append(", and leaves\n").append(Describe(ImageOf(ended.disks)));
}

void Machine::Converge(Disks disks, const std::string& replay) {
  if (!converged_.insert(Fingerprint(ImageOf(disks))).second) return;
  bool installed = false;
  for (int run = 0; run < kConvergenceRuns && !installed; ++run) {
    EndedRun ended = JudgedRun(disks, {}, replay);
    installed = IsInstalledExit(ended.end);
    disks = std::move(ended.disks);
  }
  const Image image = ImageOf(disks);
  const bool corrupt = judge_.JournalOf(image).IsCorrupt();
  const bool either = scenario_.destination == Destination::kInstalledOrBaseline;
  const std::size_t first = figures_.violations.size();
  Check(figures_, Invariant::kConverges,
        installed || corrupt || (either && judge_.IsNearlyBaseline(image)),
        "undisturbed runs do not end installed");
  Attribute(first, replay);
}

void Machine::Attribute(std::size_t first, const std::string& replay) {
  for (std::size_t i = first; i < figures_.violations.size(); ++i) {
    figures_.violations[i].replay = "--scenario '" + scenario_.name + "' " + replay;
  }
}

}  // namespace tolvarine::updater::crash_lab
