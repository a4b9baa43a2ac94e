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

std::string ReplayOf(const CutSequence& sequence) { return "--case " + sequence.Text(); }

}  // namespace

Explorer::Explorer(const Scenario& scenario, const Bounds& bounds, std::uint64_t seed, bool weak,
                   std::string* transcript)
    : scenario_(scenario),
      bounds_(bounds),
      transcript_(transcript),
      runner_(scenario, transcript),
      random_(seed),
      strict_(!weak) {
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
  runner_.figures().cuts = runner_.calls();
  return runner_.figures();
}

// --- Cuts ----------------------------------------------------------------------------------------

std::vector<Explorer::SurvivingDisks> Explorer::CutPlannedRun(Disks& disks, std::size_t run) {
  const CutSequence sequence{.run = run, .cuts = {}};
  std::vector<SurvivingDisks> left;
  const auto visit = [&](std::uint64_t state, const Disks& now) {
    const std::uint64_t losses =
        state < bounds_.first_state ? 0 : std::min(bounds_.losses, scenario_.losses);
    LookAtState(now, state, losses, scenario_.runs[run].disturbance, sequence, left);
  };
  disks = runner_.CheckedRun(disks, scenario_.runs[run], ReplayOf(sequence), visit).disks;
  return left;
}

std::vector<Explorer::SurvivingDisks> Explorer::CutRecovery(const SurvivingDisks& survivor) {
  std::vector<SurvivingDisks> left;
  runner_.Run(survivor.disks, Again(survivor.sequence), [&](std::uint64_t state, const Disks& now) {
    LookAtState(now, state, bounds_.second_losses, Disturbance::kNone, survivor.sequence, left);
  });
  return left;
}

void Explorer::LookAtState(const Disks& disks, std::uint64_t state, std::uint64_t losses,
                           Disturbance disturbance, const CutSequence& sequence,
                           std::vector<SurvivingDisks>& left) {
  Figures& figures = runner_.figures();
  ++figures.states;
  CutSequence here = sequence;
  here.cuts.push_back({state, 0});
  const std::size_t first = figures.violations.size();
  const std::optional<std::uint64_t> generation = runner_.CheckState(disks, disturbance);
  runner_.Attribute(first, ReplayOf(here));
  const LossSpace space(disks);
  if (space.count() > losses) figures.skipped += space.count() - losses;
  for (const std::uint64_t loss : Sample(space.count(), losses, random_)) {
    here.cuts.back().loss = loss;
    LookAtLoss(AfterCut(disks, space.At(loss)), generation, disturbance, here, left);
  }
}

void Explorer::LookAtLoss(Disks disks, std::optional<std::uint64_t> generation,
                          Disturbance disturbance, const CutSequence& sequence,
                          std::vector<SurvivingDisks>& left) {
  Figures& figures = runner_.figures();
  ++figures.images;
  const Image image = ImageOf(disks);
  if (!seen_.insert(Fingerprint(image)).second) return;
  const std::size_t first = figures.violations.size();
  runner_.check().CheckState(image, generation, disturbance, figures);
  runner_.Attribute(first, ReplayOf(sequence));
  left.push_back({std::move(disks), sequence});
}

// --- Recoveries ----------------------------------------------------------------------------------

// The same updater, entered in the same way, with nothing in its way any more.
PlannedRun Explorer::Again(const CutSequence& sequence) const {
  return {.entry_point = scenario_.runs[sequence.run].entry_point};
}

void Explorer::Recover(const SurvivingDisks& survivor) {
  ++runner_.figures().disks;
  if (survivor.sequence.cuts.size() > 1) ++runner_.figures().second_order;
  const std::string replay = ReplayOf(survivor.sequence);
  const EndedRun ended = runner_.CheckedRun(survivor.disks, Again(survivor.sequence), replay);
  const std::size_t first = runner_.figures().violations.size();
  CheckRecovery(survivor, ended.end);
  runner_.Attribute(first, replay);
  runner_.Converge(ended.disks, replay);
}

// A way forward that was cut off is gone to its end by the next run. On two volumes what came back
// may stand in its way.
void Explorer::CheckRecovery(const SurvivingDisks& survivor, const RunEnd& end) {
  const simulated::UpdatePlan& plan = scenario_.plan;
  if (!strict_ || plan.state_drive != plan.target_drive) return;
  if (end.entry_point != EntryPoint::kMainSequence) return;
  const JournalView found = runner_.check().JournalOf(ImageOf(survivor.disks));
  if (found.phase == TransactionPhase::Rollback || found.IsCorrupt()) return;
  Check(runner_.figures(), Invariant::kConverges, end.exit_code == 0 || end.exit_code == 7,
        "a recovery that nothing disturbs fails");
}

void Explorer::RecoverWithRandomCut(const SurvivingDisks& survivor) {
  Recover(survivor);
  std::vector<SurvivingDisks> left;
  runner_.Run(survivor.disks, Again(survivor.sequence), [&](std::uint64_t state, const Disks& now) {
    // Each state of a run of unknown length is as likely as any other.
    if (random_() % state != 0) {
      runner_.CheckState(now, Disturbance::kNone);
      return;
    }
    left.clear();
    LookAtState(now, state, 1, Disturbance::kNone, survivor.sequence, left);
  });
  for (const SurvivingDisks& last : left) Recover(last);
}

// --- Replay --------------------------------------------------------------------------------------

void Explorer::ReplayCut(const CutSequence& sequence, std::size_t cut, Disks& disks) {
  const PlannedRun run = cut == 0 ? scenario_.runs[sequence.run] : Again(sequence);
  Disks left;
  transcript_->append("--- a run starts on\n").append(Describe(ImageOf(disks)));
  runner_.Run(disks, run, [&](std::uint64_t state, const Disks& now) {
    const auto generation = runner_.CheckState(now, run.disturbance);
    if (state != sequence.cuts[cut].state) return;
    transcript_->append("--- its calls up to the cut\n").append(CallsOf(runner_.computer()));
    left = AfterCut(now, LossSpace(now).At(sequence.cuts[cut].loss));
    runner_.check().CheckState(ImageOf(left), generation, run.disturbance, runner_.figures());
  });
  disks = std::move(left);
}

Figures Explorer::Replay(const CutSequence& sequence) {
  if (sequence.run >= scenario_.runs.size()) return {};
  Disks disks = runner_.start();
  for (std::size_t run = 0; run < sequence.run; ++run) {
    disks = runner_.Run(disks, scenario_.runs[run]).disks;
  }
  for (std::size_t cut = 0; cut < sequence.cuts.size(); ++cut) {
    ReplayCut(sequence, cut, disks);
    if (!disks.empty()) continue;
    transcript_->clear();  // The run has no such state.
    return {};
  }
  const PlannedRun last = sequence.cuts.empty() ? scenario_.runs[sequence.run] : Again(sequence);
  const EndedRun ended = runner_.CheckedRun(disks, last, {});
  if (!sequence.cuts.empty()) CheckRecovery({disks, sequence}, ended.end);
  runner_.Converge(ended.disks, {});
  runner_.Attribute(0, ReplayOf(sequence));
  return runner_.figures();
}

// --- CutSequences --------------------------------------------------------------------------------------

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
  return sequence;
}

}  // namespace tolvarine::updater::crash_lab
