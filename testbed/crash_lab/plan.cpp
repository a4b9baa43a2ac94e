#include "crash_lab/plan.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tolvarine::updater::crash_lab {
namespace {

struct Campaign {
  std::string name;
  Figures (*carry_out)(const Scenario&, const CampaignBounds&);
  std::uint64_t cases = 0;
};

bool HasTwoVolumes(const Scenario& scenario) {
  return scenario.plan.state_drive != scenario.plan.target_drive;
}

std::vector<Campaign> CampaignsOf(const Scenario& scenario, const Round& round) {
  // A second volume makes a difference only where a cut can lose something.
  const bool forward = scenario.runs.front().entry_point == EntryPoint::kMainSequence;
  if (!forward || (HasTwoVolumes(scenario) && !scenario.thorough)) return {};
  const Campaign combined = {"failing calls and power cuts combined", FailAndCut, round.combined};
  if (HasTwoVolumes(scenario)) return {combined};
  std::vector<Campaign> campaigns;
  const bool undisturbed = scenario.runs.front().faults.empty();
  campaigns.push_back({"calls fail", BreakCalls, round.failing_calls});
  if (!scenario.plan.baseline.empty()) {
    campaigns.push_back({"an adversary", Interfere, round.acts});
  }
  campaigns.push_back(combined);
  if (undisturbed) campaigns.push_back({"damage", Damage, round.corruptions});
  for (Campaign& campaign : campaigns) campaign.cases = std::min(campaign.cases, scenario.cases);
  return campaigns;
}

// The campaigns of a thorough scenario are divided, so that all processors share their work.
void AddCampaigns(const Scenario& scenario, const Round& round, std::vector<Job>& jobs) {
  constexpr std::uint64_t kSlices = 4;
  const std::uint64_t slices = scenario.thorough ? kSlices : 1;
  for (const Campaign& campaign : CampaignsOf(scenario, round)) {
    for (std::uint64_t slice = 0; slice < slices; ++slice) {
      std::string name = scenario.name + ": " + campaign.name;
      if (slices > 1) name += ", " + std::to_string(slice + 1) + "/" + std::to_string(slices);
      const CampaignBounds bounds{.cases = campaign.cases,
                                  .seed = round.seed,
                                  .slice = slice,
                                  .slices = slices,
                                  .first = round.first};
      jobs.push_back({std::move(name), "--scenario '" + scenario.name + "'",
                      [&scenario, carry_out = campaign.carry_out, bounds] {
                        return carry_out(scenario, bounds);
                      }});
    }
  }
}

Job Exploration(const Scenario& scenario, const Round& round, bool weak) {
  return {scenario.name + (weak ? ", weaker model" : ""),
          (weak ? "--weak --scenario '" : "--scenario '") + scenario.name + "'",
          [&scenario, round, weak] {
            return Explorer(scenario, round.bounds, round.seed, weak).Explore();
          }};
}

// The jobs that find most come first: the cuts on one volume, then all of the thorough scenario.
std::vector<Job> UsualJobs(const std::vector<Scenario>& scenarios, const Round& round) {
  std::vector<Job> jobs;
  std::vector<Job> later;
  for (const Scenario& scenario : scenarios) {
    const bool early = scenario.thorough || !HasTwoVolumes(scenario);
    (early ? jobs : later).push_back(Exploration(scenario, round, false));
  }
  for (const Scenario& scenario : scenarios) {
    AddCampaigns(scenario, round, scenario.thorough ? jobs : later);
  }
  jobs.insert(jobs.end(), later.begin(), later.end());
  return jobs;
}

}  // namespace

Round BoundedRound(std::uint64_t seed, bool first) {
  Round round;
  round.seed = seed;
  round.first = first;
  return round;
}

Round WideRound(std::uint64_t seed) {
  Round round;
  round.seed = seed;
  round.bounds = {.losses = 4096, .second_cuts = 400, .second_losses = 16, .third_cuts = 2000};
  round.failing_calls = round.acts = round.corruptions = 4000;
  round.combined = 100;
  return round;
}

std::vector<Job> JobsOf(const std::vector<Scenario>& scenarios, const Round& round, bool weak) {
  std::vector<Job> jobs;
  if (!weak) jobs = UsualJobs(scenarios, round);
  for (const bool two_volumes : {false, true}) {
    for (const Scenario& scenario : scenarios) {
      if (HasTwoVolumes(scenario) == two_volumes) {
        jobs.push_back(Exploration(scenario, round, true));
      }
    }
  }
  return jobs;
}

std::optional<Figures> ReplayInCampaign(const Scenario& scenario, std::string_view tried,
                                        std::string& transcript) {
  static constexpr std::pair<std::string_view, decltype(Campaign::carry_out)> kCampaigns[] = {
      {"act:", Interfere},    {"damage:", Damage},     {"fault-and-cuts:", FailAndCut},
      {"fault:", BreakCalls}, {"memory:", BreakCalls}, {"wrong-copy:", BreakCalls}};
  const auto* const campaign = std::ranges::find_if(
      kCampaigns, [&](const auto& one) { return tried.starts_with(one.first); });
  if (campaign == std::end(kCampaigns)) return std::nullopt;
  CampaignBounds bounds;
  bounds.only = tried;
  bounds.transcript = &transcript;
  Figures figures = campaign->second(scenario, bounds);
  if (figures.cases == 0) return std::nullopt;
  return figures;
}

}  // namespace tolvarine::updater::crash_lab
