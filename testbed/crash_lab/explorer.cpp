#include "crash_lab/explorer.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "text/decimal.h"

namespace tolvarine::updater::crash_lab {
namespace {

// Up to `bound` different numbers below `count`, in ascending order.
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

// Keeps at most `bound` of the items, by the seed.
template <typename Item>
void Thin(std::vector<Item>& items, std::uint64_t bound, std::mt19937_64& random) {
  if (items.size() <= bound) return;
  std::shuffle(items.begin(), items.end(), random);
  items.resize(bound);
}

}  // namespace

Explorer::Explorer(const Scenario& scenario, const Bounds& bounds, std::uint64_t seed, bool weak,
                   std::string* transcript)
    : scenario_(scenario),
      bounds_(bounds),
      weak_(weak),
      transcript_(transcript),
      runner_(scenario, transcript),
      random_(seed) {
  runner_.computer().disks.write_through_holds = !weak;
}

Figures Explorer::Explore() {
  Disks disks = runner_.start();
  for (std::size_t run = 0; run < scenario_.runs.size(); ++run) {
    std::vector<SurvivingDisks> left = CutPlannedRun(disks, run);
    for (const SurvivingDisks& survivor : left) Recover(survivor);
    Thin(left, bounds_.second_cuts, random_);
    std::vector<SurvivingDisks> later;
    for (const SurvivingDisks& survivor : left) {
      for (SurvivingDisks& next : CutRecovery(survivor)) later.push_back(std::move(next));
    }
    Thin(later, bounds_.third_cuts, random_);
    for (const SurvivingDisks& survivor : later) RecoverWithRandomCut(survivor);
  }
  runner_.Converge(disks, ReplayOf({.run = scenario_.runs.size() - 1, .cuts = {}}));
  Figures figures = runner_.figures();
  if (weak_ && scenario_.plan.state_drive != scenario_.plan.target_drive) {
    figures.SetKnownBreaksAside();
  }
  return figures;
}

std::string Explorer::ReplayOf(const CutSequence& sequence) const {
  return (weak_ ? "--weak --case " : "--case ") + sequence.Text();
}

// --- Cuts ----------------------------------------------------------------------------------------

std::vector<Explorer::SurvivingDisks> Explorer::CutPlannedRun(Disks& disks, std::size_t run) {
  const CutSequence sequence{.run = run, .cuts = {}};
  const PlannedRun& planned = scenario_.runs[run];
  const std::uint64_t calls_before = runner_.calls();
  std::vector<SurvivingDisks> left;
  const auto visit = [&](std::uint64_t state, const Disks& now) {
    const std::uint64_t losses =
        state < bounds_.first_state ? 0 : std::min(bounds_.losses, scenario_.losses);
    CutAt(CheckLive(state, now, planned.disturbance, sequence), now, losses, sequence, left);
  };
  disks = runner_.CheckedRun(disks, planned, ReplayOf(sequence), visit).disks;
  runner_.figures().calls += runner_.calls() - calls_before;
  return left;
}

std::vector<Explorer::SurvivingDisks> Explorer::CutRecovery(const SurvivingDisks& survivor) {
  const CutSequence& sequence = survivor.sequence;
  const std::uint64_t calls_before = runner_.calls();
  std::vector<SurvivingDisks> left;
  runner_.Run(survivor.disks, RecoveryRun(sequence), [&](std::uint64_t state, const Disks& now) {
    CutAt(CheckLive(state, now, Disturbance::kNone, sequence), now, bounds_.second_losses, sequence,
          left);
  });
  runner_.figures().calls += runner_.calls() - calls_before;
  return left;
}

Explorer::CutPoint Explorer::CheckLive(std::uint64_t state, const Disks& disks,
                                       Disturbance disturbance, const CutSequence& sequence) {
  const std::size_t first = runner_.figures().violations.size();
  CutPoint point{state, runner_.CheckState(disks, disturbance), disturbance};
  // Under the weaker model the rename of the first save is durable once the second save is flushed.
  if (weak_ && point.generation == 1) point.generation.reset();
  CutSequence here = sequence;
  here.cuts.push_back({state, 0});
  runner_.Attribute(first, ReplayOf(here));
  return point;
}

void Explorer::CutAt(const CutPoint& point, const Disks& disks, std::uint64_t losses,
                     const CutSequence& sequence, std::vector<SurvivingDisks>& left) {
  Figures& figures = runner_.figures();
  ++figures.states;
  CutSequence here = sequence;
  here.cuts.push_back({point.state, 0});
  const LossSpace space(disks);
  if (space.count() > losses) figures.skipped += space.count() - losses;
  for (const std::uint64_t loss : Sample(space.count(), losses, random_)) {
    here.cuts.back().loss = loss;
    CheckAfterCut(AfterCut(disks, space.At(loss)), point, here, left);
  }
}

void Explorer::CheckAfterCut(Disks disks, const CutPoint& point, const CutSequence& sequence,
                             std::vector<SurvivingDisks>& left) {
  Figures& figures = runner_.figures();
  ++figures.cuts;
  const Image image = ImageOf(disks);
  const std::uint64_t fingerprint = Fingerprint(image);
  if (!checked_.insert({fingerprint, point.generation, point.disturbance}).second) return;
  const std::size_t first = figures.violations.size();
  runner_.check().CheckState(image, point.generation, point.disturbance, figures);
  runner_.CheckWorkspace(disks, image, point.disturbance);
  runner_.Attribute(first, ReplayOf(sequence));
  if (!recovered_.insert(fingerprint).second) return;
  left.push_back({std::move(disks), sequence});
}

// --- Recoveries ----------------------------------------------------------------------------------

// The same updater, entered in the same way, without faults.
PlannedRun Explorer::RecoveryRun(const CutSequence& sequence) const {
  return {.entry_point = scenario_.runs[sequence.run].entry_point};
}

void Explorer::Recover(const SurvivingDisks& survivor) {
  ++runner_.figures().disks;
  if (survivor.sequence.cuts.size() > 1) ++runner_.figures().second_order;
  const EndedRun ended = runner_.CheckedRun(survivor.disks, RecoveryRun(survivor.sequence),
                                            ReplayOf(survivor.sequence));
  const std::size_t first = runner_.figures().violations.size();
  CheckRecovery(survivor, ended.end);
  runner_.Attribute(first, ReplayOf(survivor.sequence));
  runner_.Converge(ended.disks, ReplayOf(survivor.sequence));
}

// An update that was cut on its way forward is finished by the next run. On two volumes a removed
// file that a cut brought back may prevent that.
void Explorer::CheckRecovery(const SurvivingDisks& survivor, const RunEnd& end) {
  const simulated::UpdatePlan& plan = scenario_.plan;
  if (plan.state_drive != plan.target_drive) return;
  if (end.entry_point != EntryPoint::kMainSequence) return;
  const JournalView found = runner_.check().JournalOf(ImageOf(survivor.disks));
  if (found.phase == TransactionPhase::Rollback || found.IsCorrupt()) return;
  Check(runner_.figures(), Invariant::kConverges, end.exit_code == 0 || end.exit_code == 7,
        "a recovery that nothing disturbs fails");
}

void Explorer::RecoverWithRandomCut(const SurvivingDisks& survivor) {
  Recover(survivor);
  CutPoint kept;
  Disks kept_disks;
  runner_.Run(survivor.disks, RecoveryRun(survivor.sequence),
              [&](std::uint64_t state, const Disks& now) {
                // Reservoir sampling: how many states there are is known only at the end. If state
                // number n replaces the kept one with probability 1/n, all are equally likely.
                const CutPoint point = CheckLive(state, now, Disturbance::kNone, survivor.sequence);
                if (random_() % state != 0) return;
                kept = point;
                kept_disks = now;
              });
  std::vector<SurvivingDisks> left;
  CutAt(kept, kept_disks, 1, survivor.sequence, left);
  for (const SurvivingDisks& last : left) Recover(last);
}

// --- Replay --------------------------------------------------------------------------------------

// Runs up to the cut and cuts. False where the run has no such state, or the state no such loss.
bool Explorer::ReplayCut(const CutSequence& sequence, std::size_t cut, Disks& disks) {
  const PlannedRun run = cut == 0 ? scenario_.runs[sequence.run] : RecoveryRun(sequence);
  const Cut& wanted = sequence.cuts[cut];
  CutPoint met;
  Disks met_disks;
  transcript_->append("--- a run starts on\n").append(Describe(ImageOf(disks)));
  runner_.Run(disks, run, [&](std::uint64_t state, const Disks& now) {
    const CutPoint point = CheckLive(state, now, run.disturbance, sequence);
    if (state != wanted.state) return;
    transcript_->append("--- its calls up to the cut\n").append(CallsOf(runner_.computer()));
    met = point;
    met_disks = now;
  });
  const LossSpace space(met_disks);
  if (met.state == 0 || wanted.loss >= space.count()) return false;
  disks = AfterCut(met_disks, space.At(wanted.loss));
  const Image left = ImageOf(disks);
  runner_.check().CheckState(left, met.generation, run.disturbance, runner_.figures());
  runner_.CheckWorkspace(disks, left, run.disturbance);
  return true;
}

std::optional<Figures> Explorer::Replay(const CutSequence& sequence) {
  if (sequence.run >= scenario_.runs.size()) return std::nullopt;
  Disks disks = runner_.start();
  for (std::size_t run = 0; run < sequence.run; ++run) {
    disks = runner_.Run(disks, scenario_.runs[run]).disks;
  }
  for (std::size_t cut = 0; cut < sequence.cuts.size(); ++cut) {
    if (!ReplayCut(sequence, cut, disks)) return std::nullopt;
  }
  if (sequence.cuts.empty()) {
    disks = runner_.CheckedRun(disks, scenario_.runs[sequence.run], {}).disks;
  } else {
    const SurvivingDisks survivor{disks, sequence};
    const EndedRun ended = runner_.CheckedRun(survivor.disks, RecoveryRun(survivor.sequence),
                                              ReplayOf(survivor.sequence));
    CheckRecovery(survivor, ended.end);
    disks = ended.disks;
  }
  runner_.Converge(disks, {});
  runner_.Attribute(0, ReplayOf(sequence));
  return runner_.figures();
}

// --- Cut sequences as text -----------------------------------------------------------------------

std::string CutSequence::Text() const {
  std::string text = std::to_string(run);
  char separator = ':';
  for (const Cut& cut : cuts) {
    text += separator + std::to_string(cut.state) + "." + std::to_string(cut.loss);
    separator = '/';
  }
  return text;
}

std::optional<CutSequence> CutSequence::Parse(std::string_view text) {
  CutSequence sequence;
  const std::size_t colon = text.find(':');
  const auto run = ParseDecimal<std::size_t>(text.substr(0, colon));
  if (!run) return std::nullopt;
  sequence.run = *run;
  std::string_view rest = colon == std::string_view::npos ? "" : text.substr(colon + 1);
  while (!rest.empty()) {
    const std::string_view cut = rest.substr(0, rest.find('/'));
    const std::size_t dot = cut.find('.');
    if (dot == std::string_view::npos) return std::nullopt;
    const auto state = ParseDecimal<std::uint64_t>(cut.substr(0, dot));
    const auto loss = ParseDecimal<std::uint64_t>(cut.substr(dot + 1));
    if (!state || !loss) return std::nullopt;
    sequence.cuts.push_back({*state, *loss});
    rest.remove_prefix(std::min(rest.size(), cut.size() + 1));
  }
  if (sequence.Text() != text) return std::nullopt;  // A separator or a zero too many.
  return sequence;
}

}  // namespace tolvarine::updater::crash_lab
