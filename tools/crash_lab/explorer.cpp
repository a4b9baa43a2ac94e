#include "crash_lab/explorer.h"

#include <algorithm>
#include <numeric>

#include "text/decimal.h"

namespace tolvarine::updater::crash_lab {
namespace {

// Up to `bound` different numbers below `count`: all of them where that is enough.
std::vector<std::uint64_t> Sample(std::uint64_t count, std::uint64_t bound,
                                  std::mt19937_64& random) {
  std::vector<std::uint64_t> numbers;
  if (count <= bound) {
    numbers.resize(count);
    std::iota(numbers.begin(), numbers.end(), 0);
    return numbers;
  }
  std::set<std::uint64_t> chosen;
  while (chosen.size() < bound) chosen.insert(random() % count);
  numbers.assign(chosen.begin(), chosen.end());
  return numbers;
}

// Leaves at most `bound` of the items, by the seed.
template <typename Item>
void Thin(std::vector<Item>& items, std::uint64_t bound, std::mt19937_64& random) {
  if (items.size() <= bound) return;
  std::shuffle(items.begin(), items.end(), random);
  items.resize(bound);
}

std::string ReplayOf(const Trail& trail) { return "--case " + trail.Text(); }

}  // namespace

Explorer::Explorer(const Scenario& scenario, const Bounds& bounds, std::uint64_t seed, bool weak,
                   std::string* story)
    : scenario_(scenario),
      bounds_(bounds),
      story_(story),
      machine_(scenario, story),
      random_(seed),
      strict_(!weak) {
  machine_.world().write_through_holds = !weak;
}

Figures Explorer::Explore() {
  Disks disks = machine_.start();
  for (std::size_t run = 0; run < scenario_.runs.size(); ++run) {
    std::vector<Leftover> left = CutPlannedRun(disks, run);
    for (const Leftover& leftover : left) Recover(leftover);
    Thin(left, bounds_.second_cuts, random_);
    std::vector<Leftover> later;
    for (const Leftover& leftover : left) {
      for (Leftover& next : CutRecovery(leftover)) later.push_back(std::move(next));
    }
    Thin(later, bounds_.third_cuts, random_);
    for (const Leftover& leftover : later) RecoverWithRandomCut(leftover);
  }
  machine_.Converge(disks, ReplayOf({.run = scenario_.runs.size() - 1, .cuts = {}}));
  machine_.figures().cuts = machine_.calls();
  return machine_.figures();
}

// --- Cuts ----------------------------------------------------------------------------------------

std::vector<Explorer::Leftover> Explorer::CutPlannedRun(Disks& disks, std::size_t run) {
  const Trail trail{.run = run, .cuts = {}};
  std::vector<Leftover> left;
  const auto visit = [&](std::uint64_t state, const Disks& now) {
    LookAtState(now, state, bounds_.losses, scenario_.runs[run].disturbance, trail, left);
  };
  disks = machine_.JudgedRun(disks, scenario_.runs[run], ReplayOf(trail), visit).disks;
  return left;
}

std::vector<Explorer::Leftover> Explorer::CutRecovery(const Leftover& leftover) {
  std::vector<Leftover> left;
  machine_.Run(leftover.disks, Again(leftover.trail), [&](std::uint64_t state, const Disks& now) {
    LookAtState(now, state, bounds_.second_losses, Disturbance::kNone, leftover.trail, left);
  });
  return left;
}

void Explorer::LookAtState(const Disks& disks, std::uint64_t state, std::uint64_t losses,
                           Disturbance disturbance, const Trail& trail,
                           std::vector<Leftover>& left) {
  Figures& figures = machine_.figures();
  ++figures.states;
  Trail here = trail;
  here.cuts.push_back({state, 0});
  const std::size_t first = figures.violations.size();
  const std::optional<std::uint64_t> generation = machine_.JudgeState(disks, state, disturbance);
  machine_.Attribute(first, ReplayOf(here));
  const LossSpace space(disks);
  if (space.count() > losses) figures.skipped += space.count() - losses;
  for (const std::uint64_t loss : Sample(space.count(), losses, random_)) {
    here.cuts.back().loss = loss;
    LookAtLoss(AfterCut(disks, space.At(loss)), generation, disturbance, here, left);
  }
}

void Explorer::LookAtLoss(Disks disks, std::optional<std::uint64_t> generation,
                          Disturbance disturbance, const Trail& trail,
                          std::vector<Leftover>& left) {
  Figures& figures = machine_.figures();
  ++figures.images;
  const Image image = ImageOf(disks);
  if (!seen_.insert(Fingerprint(image)).second) return;
  const std::size_t first = figures.violations.size();
  machine_.judge().AtMoment(image, generation, disturbance, figures);
  machine_.Attribute(first, ReplayOf(trail));
  left.push_back({std::move(disks), trail});
}

// --- Recoveries ----------------------------------------------------------------------------------

// The same updater, entered in the same way, with nothing in its way any more.
PlannedRun Explorer::Again(const Trail& trail) const {
  return {.entrance = scenario_.runs[trail.run].entrance};
}

void Explorer::Recover(const Leftover& leftover) {
  ++machine_.figures().disks;
  if (leftover.trail.cuts.size() > 1) ++machine_.figures().second_order;
  const std::string replay = ReplayOf(leftover.trail);
  const EndedRun ended = machine_.JudgedRun(leftover.disks, Again(leftover.trail), replay);
  const std::size_t first = machine_.figures().violations.size();
  JudgeRecovery(leftover, ended.end);
  machine_.Attribute(first, replay);
  machine_.Converge(ended.disks, replay);
}

// A way forward that was cut off is gone to its end by the next run. On two volumes what came back
// may stand in its way.
void Explorer::JudgeRecovery(const Leftover& leftover, const RunEnd& end) {
  const simulated::UpdatePlan& plan = scenario_.plan;
  if (!strict_ || plan.state_drive != plan.target_drive) return;
  if (end.entrance != Entrance::kMainSequence) return;
  const JournalView found = machine_.judge().JournalOf(ImageOf(leftover.disks));
  if (found.phase == TransactionPhase::Rollback || found.IsCorrupt()) return;
  Check(machine_.figures(), Invariant::kConverges, end.exit_code == 0 || end.exit_code == 7,
        "a recovery that nothing disturbs fails");
}

void Explorer::RecoverWithRandomCut(const Leftover& leftover) {
  Recover(leftover);
  std::vector<Leftover> left;
  machine_.Run(leftover.disks, Again(leftover.trail), [&](std::uint64_t state, const Disks& now) {
    // Each state of a run of unknown length is as likely as any other.
    if (random_() % state != 0) {
      machine_.JudgeState(now, state, Disturbance::kNone);
      return;
    }
    left.clear();
    LookAtState(now, state, 1, Disturbance::kNone, leftover.trail, left);
  });
  for (const Leftover& last : left) Recover(last);
}

// --- Replay --------------------------------------------------------------------------------------

void Explorer::ReplayCut(const Trail& trail, std::size_t cut, Disks& disks) {
  const PlannedRun run = cut == 0 ? scenario_.runs[trail.run] : Again(trail);
  Disks left;
  story_->append("--- a run starts on\n").append(Describe(ImageOf(disks)));
  machine_.Run(disks, run, [&](std::uint64_t state, const Disks& now) {
    const auto generation = machine_.JudgeState(now, state, run.disturbance);
    if (state != trail.cuts[cut].state) return;
    story_->append("--- its calls up to the cut\n").append(CallsOf(machine_.world()));
    left = AfterCut(now, LossSpace(now).At(trail.cuts[cut].loss));
    machine_.judge().AtMoment(ImageOf(left), generation, run.disturbance, machine_.figures());
  });
  disks = std::move(left);
}

Figures Explorer::Replay(const Trail& trail) {
  if (trail.run >= scenario_.runs.size()) return {};
  Disks disks = machine_.start();
  for (std::size_t run = 0; run < trail.run; ++run) {
    disks = machine_.Run(disks, scenario_.runs[run]).disks;
  }
  for (std::size_t cut = 0; cut < trail.cuts.size(); ++cut) {
    ReplayCut(trail, cut, disks);
    if (!disks.empty()) continue;
    story_->clear();  // The run has no such state.
    return {};
  }
  const PlannedRun last = trail.cuts.empty() ? scenario_.runs[trail.run] : Again(trail);
  const EndedRun ended = machine_.JudgedRun(disks, last, {});
  if (!trail.cuts.empty()) JudgeRecovery({disks, trail}, ended.end);
  machine_.Converge(ended.disks, {});
  machine_.Attribute(0, ReplayOf(trail));
  return machine_.figures();
}

// --- Trails --------------------------------------------------------------------------------------

std::string Trail::Text() const {
  std::string text = std::to_string(run);
  char separator = ':';
  for (const Cut& cut : cuts) {
    text += separator + std::to_string(cut.state) + "." + std::to_string(cut.loss);
    separator = '/';
  }
  return text;
}

std::optional<Trail> Trail::Parse(std::string_view text) {
  Trail trail;
  const std::size_t colon = text.find(':');
  const auto run = ParseDecimal<std::size_t>(text.substr(0, colon));
  if (!run) return std::nullopt;
  trail.run = *run;
  std::string_view rest = colon == std::string_view::npos ? "" : text.substr(colon + 1);
  while (!rest.empty()) {
    const std::string_view cut = rest.substr(0, rest.find('/'));
    const std::size_t dot = cut.find('.');
    if (dot == std::string_view::npos) return std::nullopt;
    const auto state = ParseDecimal<std::uint64_t>(cut.substr(0, dot));
    const auto loss = ParseDecimal<std::uint64_t>(cut.substr(dot + 1));
    if (!state || !loss) return std::nullopt;
    trail.cuts.push_back({*state, *loss});
    rest.remove_prefix(std::min(rest.size(), cut.size() + 1));
  }
  return trail;
}

}  // namespace tolvarine::updater::crash_lab
