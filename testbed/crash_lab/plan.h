// The jobs that the laboratory carries out in one round: which scenarios are explored and which
// campaigns they take, within which bounds.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/explorer.h"
#include "crash_lab/jobs.h"

namespace tolvarine::updater::crash_lab {

// The bounds of one round.
struct Round {
  std::uint64_t seed = 1;
  Bounds bounds;
  std::uint64_t failing_calls = 700;  // Cases of one scenario, unless it is thorough; likewise:
  std::uint64_t acts = 500;
  std::uint64_t corruptions = 700;
  std::uint64_t combined = 6;
  bool first = false;  // No campaign continues after its first violation.
};

// The round of the tests.
[[nodiscard]] Round BoundedRound(std::uint64_t seed, bool first);

[[nodiscard]] Round WideRound(std::uint64_t seed);

// The explorations and campaigns of the scenarios, then their explorations under the weaker model;
// with `weak`, the latter alone. The jobs refer to the scenarios, which must outlive them.
[[nodiscard]] std::vector<Job> JobsOf(const std::vector<Scenario>& scenarios, const Round& round,
                                      bool weak);

// Repeats one case of a campaign and writes a transcript of it. The beginning of the case says
// which campaign it is of; nothing where there is no such campaign or case.
[[nodiscard]] std::optional<Figures> ReplayInCampaign(const Scenario& scenario,
                                                      std::string_view tried,
                                                      std::string& transcript);

}  // namespace tolvarine::updater::crash_lab
