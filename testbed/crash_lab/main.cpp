// The crash laboratory: see docs/crash-model.md for what it assumes and what it proves.
//
//   crash_lab                            the bounded run that the tests make
//   crash_lab --seconds S --seed N       explores with other seeds and wider bounds for S seconds
//   crash_lab --scenario NAME            one scenario alone
//   crash_lab --scenario NAME --case T   replays one case, and writes what it met to --out FILE
//   crash_lab --first                    the bounded run, no further than the first violation
//   crash_lab --list                     the names of the scenarios
//
// Exits 0 when no invariant was broken. The last line is the sum.

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/explorer.h"
#include "crash_lab/jobs.h"

namespace tolvarine::updater::crash_lab {
namespace {

struct CommandLine {
  std::uint64_t seed = 1;
  std::uint64_t seconds = 0;  // 0 for the bounded run.
  std::string scenario;
  std::string replayed;
  std::string out;
  bool first = false;
  bool list = false;
  bool sound = true;
};

CommandLine Parse(int count, char** arguments) {
  CommandLine line;
  for (int i = 1; i < count; ++i) {
    const std::string name = arguments[i];
    if (name == "--list" || name == "--first") {
      (name == "--list" ? line.list : line.first) = true;
      continue;
    }
    const char* const value = i + 1 < count ? arguments[++i] : "";
    if (name == "--seed") {
      line.seed = std::strtoull(value, nullptr, 10);
    } else if (name == "--seconds") {
      line.seconds = std::strtoull(value, nullptr, 10);
    } else if (name == "--scenario") {
      line.scenario = value;
    } else if (name == "--case") {
      line.replayed = value;
    } else if (name == "--out") {
      line.out = value;
    } else {
      line.sound = false;
    }
    if (*value == '\0') line.sound = false;
  }
  return line;
}

unsigned Processors() { return static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN))); }

std::vector<Scenario> ScenariosOf(const CommandLine& line) {
  std::vector<Scenario> scenarios = AllScenarios();
  if (line.scenario.empty()) return scenarios;
  std::erase_if(scenarios, [&](const Scenario& one) { return one.name != line.scenario; });
  return scenarios;
}

// --- The jobs of one round -----------------------------------------------------------------------

struct Round {
  Bounds bounds;
  CampaignBounds broken;
  CampaignBounds acts;
  CampaignBounds corruptions;
  CampaignBounds combined;
  std::uint64_t seed = 1;
};

Round BoundedRound(std::uint64_t seed, bool first = false) {
  Round round;
  round.seed = seed;
  round.broken = {.cases = 700, .seed = seed};
  round.acts = {.cases = 500, .seed = seed};
  round.corruptions = {.cases = 700, .seed = seed};
  round.combined = {.cases = 6, .seed = seed};
  round.broken.first = round.acts.first = round.corruptions.first = round.combined.first = first;
  return round;
}

Round WideRound(std::uint64_t seed) {
  Round round = BoundedRound(seed);
  round.bounds = {.losses = 4096, .second_cuts = 400, .second_losses = 16, .third_cuts = 2000};
  round.broken.cases = round.acts.cases = round.corruptions.cases = 4000;
  round.combined.cases = 100;
  return round;
}

// One of the things that befall a scenario beside power cuts.
struct Campaign {
  std::string name;
  Figures (*carry_out)(const Scenario&, const CampaignBounds&);
  CampaignBounds bounds;
};

bool HasTwoVolumes(const Scenario& scenario) {
  return scenario.plan.state_drive != scenario.plan.target_drive;
}

std::vector<Campaign> CampaignsOf(const Scenario& scenario, const Round& round) {
  // Whether the state lies on a volume of its own changes nothing where nothing is lost.
  const bool forward = scenario.runs.front().entry_point == EntryPoint::kMainSequence;
  if (!forward || (HasTwoVolumes(scenario) && !scenario.thorough)) return {};
  const Campaign combined = {"failing calls and power cuts combined", FailAndCut, round.combined};
  if (HasTwoVolumes(scenario)) return {combined};
  std::vector<Campaign> campaigns;
  const bool undisturbed = scenario.runs.front().faults.empty();
  campaigns.push_back({"calls fail", BreakCalls, round.broken});
  if (!scenario.plan.baseline.empty()) {
    campaigns.push_back({"an adversary", Interfere, round.acts});
  }
  campaigns.push_back(combined);
  if (undisturbed) campaigns.push_back({"damage", Damage, round.corruptions});
  for (Campaign& campaign : campaigns) {
    campaign.bounds.cases = std::min(campaign.bounds.cases, scenario.cases);
  }
  return campaigns;
}

// A thorough scenario's campaigns go in slices, so that all processors have a share of each.
void AddCampaigns(const Scenario& scenario, const Round& round, std::vector<Job>& jobs) {
  constexpr std::uint64_t kSlices = 4;
  const std::uint64_t slices = scenario.thorough ? kSlices : 1;
  for (Campaign& campaign : CampaignsOf(scenario, round)) {
    for (std::uint64_t slice = 0; slice < slices; ++slice) {
      std::string name = scenario.name + ": " + campaign.name;
      if (slices > 1) name += ", " + std::to_string(slice + 1) + "/" + std::to_string(slices);
      campaign.bounds.slice = slice;
      campaign.bounds.slices = slices;
      jobs.push_back(
          {std::move(name), [=] { return campaign.carry_out(scenario, campaign.bounds); }});
    }
  }
}

Job Exploration(const Scenario& scenario, bool weak, const Round& round) {
  return {scenario.name,
          [=] { return Explorer(scenario, round.bounds, round.seed, weak).Explore(); }};
}

// What finds most comes first: the cuts on one volume, then all of the thorough scenario.
std::vector<Job> JobsOf(const std::vector<Scenario>& scenarios, const Round& round) {
  std::vector<Job> jobs;
  std::vector<Job> later;
  for (const Scenario& scenario : scenarios) {
    const bool early = scenario.thorough || !HasTwoVolumes(scenario);
    (early ? jobs : later).push_back(Exploration(scenario, false, round));
  }
  for (const Scenario& scenario : scenarios) {
    const bool early = scenario.thorough || scenario.cases < round.broken.cases;
    AddCampaigns(scenario, round, early ? jobs : later);
  }
  jobs.insert(jobs.end(), later.begin(), later.end());
  return jobs;
}

// --- The weaker model ----------------------------------------------------------------------------

void PrintWhatHolds(const char* where, const Figures& figures) {
  std::printf("%s: ", where);
  bool all = true;
  for (std::size_t i = 0; i < kInvariantCount; ++i) {
    const auto broken =
        std::ranges::count(figures.violations, static_cast<Invariant>(i), &Violation::invariant);
    if (broken == 0) continue;
    std::printf("%s%s broken %lld times", all ? "" : ", ",
                std::string(NameOf(static_cast<Invariant>(i))).c_str(),
                static_cast<long long>(broken));
    all = false;
  }
  std::printf("%s\n", all ? "every invariant holds" : "; the others hold");
}

// Reported apart, and not among the violations: it is the medium that breaks its word here.
void ExploreWeakerModel(const std::vector<Scenario>& scenarios, const Round& round) {
  std::printf("\nweaker model: a write-through rename returns before it is on the medium\n");
  for (const bool apart : {false, true}) {
    std::vector<Job> jobs;
    for (const Scenario& scenario : scenarios) {
      if (HasTwoVolumes(scenario) == apart) jobs.push_back(Exploration(scenario, true, round));
    }
    if (jobs.empty()) continue;
    const Figures figures = RunJobs(jobs, Processors());
    PrintWhatHolds(apart ? "on two volumes" : "on one volume", figures);
  }
}

// --- Telling -------------------------------------------------------------------------------------

int Tell(const Figures& figures, std::uint64_t seed) {
  constexpr std::size_t kShown = 40;
  std::fputs(Summary(figures).c_str(), stdout);
  for (std::size_t i = 0; i < std::min(kShown, figures.violations.size()); ++i) {
    const Violation& violation = figures.violations[i];
    std::printf("BROKEN %s: %s\n  crash_lab %s\n", std::string(NameOf(violation.invariant)).c_str(),
                violation.what.c_str(), violation.replay.c_str());
  }
  std::printf("violations %zu, disks %llu, cuts %llu, seed %llu\n", figures.violations.size(),
              static_cast<unsigned long long>(figures.disks),
              static_cast<unsigned long long>(figures.cuts), static_cast<unsigned long long>(seed));
  return figures.violations.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

// The case's own text says which campaign it is of; a sequence begins with a number.
Figures ReplayCase(const Scenario& scenario, const CommandLine& line, std::string& transcript) {
  CampaignBounds one;
  one.only = line.replayed;
  one.transcript = &transcript;
  if (line.replayed.starts_with("act:")) return Interfere(scenario, one);
  if (line.replayed.starts_with("fault-and-cuts:")) return FailAndCut(scenario, one);
  if (line.replayed.starts_with("damage:")) return Damage(scenario, one);
  const std::optional<CutSequence> sequence = CutSequence::Parse(line.replayed);
  if (!sequence) return BreakCalls(scenario, one);
  return Explorer(scenario, Bounds(), line.seed, false, &transcript).Replay(*sequence);
}

int Replay(const Scenario& scenario, const CommandLine& line) {
  std::string transcript;
  const Figures figures = ReplayCase(scenario, line, transcript);
  if (transcript.empty()) {
    std::fprintf(stderr, "no such case: %s\n", line.replayed.c_str());
    return EXIT_FAILURE;
  }
  std::FILE* const file = line.out.empty() ? stdout : std::fopen(line.out.c_str(), "w");
  if (file == nullptr) return EXIT_FAILURE;
  std::fputs(transcript.c_str(), file);
  if (file != stdout) std::fclose(file);
  return Tell(figures, line.seed);
}

int Explore(const CommandLine& line, const std::vector<Scenario>& scenarios) {
  const Clock::time_point end = Clock::now() + std::chrono::seconds(line.seconds);
  std::fputs(TableHead().c_str(), stdout);
  Figures all;
  if (line.seconds == 0) {
    const Round round = BoundedRound(line.seed, line.first);
    all = RunJobs(JobsOf(scenarios, round), Processors(), {.at_first = line.first});
    if (!line.first) ExploreWeakerModel(scenarios, round);
  }
  for (std::uint64_t seed = line.seed; line.seconds != 0 && Clock::now() < end; ++seed) {
    all.Add(RunJobs(JobsOf(scenarios, WideRound(seed)), Processors(), {.at = end}));
  }
  return Tell(all, line.seed);
}

int Main(int count, char** arguments) {
  const CommandLine line = Parse(count, arguments);
  const std::vector<Scenario> scenarios = ScenariosOf(line);
  if (!line.sound || scenarios.empty()) {
    std::fputs(
        "usage: crash_lab [--seconds S] [--seed N] [--scenario NAME [--case T [--out FILE]]]"
        " [--first] [--list]\n",
        stderr);
    return EXIT_FAILURE;
  }
  if (line.list) {
    for (const Scenario& scenario : scenarios) std::printf("%s\n", scenario.name.c_str());
    return EXIT_SUCCESS;
  }
  if (!line.replayed.empty()) return Replay(scenarios.front(), line);
  return Explore(line, scenarios);
}

}  // namespace
}  // namespace tolvarine::updater::crash_lab

int main(int count, char** arguments) {
  return tolvarine::updater::crash_lab::Main(count, arguments);
}
