// What disturbs an update beside power cuts. Each campaign takes a scenario and checks the same
// invariants as the explorer; it tries all its cases, or a sample of them by the seed.

#pragma once

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "crash_lab/report.h"
#include "crash_lab/scenario.h"

namespace tolvarine::updater::crash_lab {

struct CampaignBounds {
  std::uint64_t cases = ~std::uint64_t{0};  // Cases tried, of all that there are.
  std::uint64_t seed = 1;
  std::uint64_t slice = 0;  // With several slices: every so many-th case, whatever `cases` says.
  std::uint64_t slices = 1;
  bool first = false;                 // No further than the first violation.
  std::string only{};                 // The text of the one case to replay; empty for all of them.
  std::string* transcript = nullptr;  // Takes what a replay met, in words.
};

// As many of the cases as the bound allows, by the seed; the others are counted as skipped.
template <typename Case>
[[nodiscard]] std::vector<Case> Chosen(std::vector<Case> cases, const CampaignBounds& bounds,
                                       Figures& figures) {
  if (!bounds.only.empty()) {
    std::erase_if(cases, [&](const Case& one) { return one.Text() != bounds.only; });
  }
  if (bounds.slices > 1) {
    std::vector<Case> slice;
    for (std::size_t i = bounds.slice; i < cases.size(); i += bounds.slices) {
      slice.push_back(std::move(cases[i]));
    }
    return slice;
  }
  if (cases.size() <= bounds.cases) return cases;
  figures.skipped_cases += cases.size() - bounds.cases;
  std::mt19937_64 random(bounds.seed);
  std::shuffle(cases.begin(), cases.end(), random);
  cases.resize(bounds.cases);
  return cases;
}

// Tries the cases one after another.
template <typename Case, typename Act>
void TryEach(const std::vector<Case>& cases, const CampaignBounds& bounds, Figures& figures,
             Act act) {
  for (const Case& tried : cases) {
    if (bounds.first && !figures.violations.empty()) return;
    act(tried);
    ++figures.cases;
  }
}

// Every call of the scenario's first run fails at each of its occurrences, with each code that is
// plausible for it. A failure that comes once must leave a whole installation when the run ends;
// one that stays from there on must leave every name whole at every state. Runs without it must
// then end installed. Memory that runs out at a call, and a copy that succeeds with wrong bytes,
// are cases, too.
[[nodiscard]] Figures BreakCalls(const Scenario& scenario, const CampaignBounds& bounds);

// Each call of the first run that flushes, moves, copies, writes or removes fails once with code 5,
// and the power is cut at every call from there on.
[[nodiscard]] Figures FailAndCut(const Scenario& scenario, const CampaignBounds& bounds);

// Between any two calls another process acts: it changes, replaces, deletes, renames or hard-links
// a release file, swaps a directory of the release or of the target for a junction, plants a file
// or a directory under a temporary's name, or holds a target file open. Only authenticated bytes
// come under target names; a write outside the roots happens at most between the proof of a path
// and its use, and each such interleaving is named.
[[nodiscard]] Figures Interfere(const Scenario& scenario, const CampaignBounds& bounds);

// Slots are flipped byte by byte, truncated, swapped, doubled, zeroed and exchanged for those of
// another transaction; baseline copies, the target and the release change between two runs, in
// size or in one byte. The disks are those of the states of the scenario's first run; a slice is
// every case of one state.
[[nodiscard]] Figures Damage(const Scenario& scenario, const CampaignBounds& bounds);

}  // namespace tolvarine::updater::crash_lab
