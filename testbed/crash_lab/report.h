// What the laboratory has counted and found, and its report.

#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "crash_lab/invariants.h"

namespace tolvarine::updater::crash_lab {

struct Violation {
  Invariant invariant{};
  std::string what;
  std::string replay;  // The arguments that lead there again.
};

// Outcomes that are prescribed although they look harsh, each under its own condition. They are
// counted, and are no violations.
struct AcceptedOutcomes {
  std::uint64_t corrupt_in_first_save = 0;  // The target is untouched.
  std::uint64_t corrupt_in_removal = 0;     // The release is whole.
  // On two volumes, a power cut has undone a removal that was counted but not forced: the removed
  // file is there again, whole.
  std::uint64_t removal_came_back = 0;
  // Somebody swapped a directory between the check of a path and its use, and a write was
  // redirected out of the target.
  std::uint64_t redirected_writes = 0;
};

// The figures of one job, or of all.
struct Figures {
  std::uint64_t jobs = 0;           // Jobs that ended by themselves.
  std::uint64_t calls = 0;          // Calls of the runs that were cut before every call.
  std::uint64_t states = 0;         // States of the disks that were cut: between two changes.
  std::uint64_t cuts = 0;           // Power cuts made, each with one loss.
  std::uint64_t disks = 0;          // Different disks that they left, on which the updater was run.
  std::uint64_t second_order = 0;   // Of these, after a second or a third cut.
  std::uint64_t skipped = 0;        // Losses beyond the bound, not tried.
  std::uint64_t cases = 0;          // Failing calls, acts and damage that were tried.
  std::uint64_t skipped_cases = 0;  // Cases beyond the bound, not tried.
  std::uint64_t runs = 0;           // Runs of the updater.
  AcceptedOutcomes accepted;
  std::array<std::uint64_t, kInvariantCount> checks{};
  // Under the weaker model on two volumes, violations of invariants that are known to break there.
  std::array<std::uint64_t, kInvariantCount> known_breaks{};
  std::vector<Violation> violations;
  std::vector<std::string> failed_jobs;  // How each job failed that did not end by itself.
  std::set<std::string> redirected;      // Between which calls a write was redirected.

  void Add(const Figures& other);

  // Moves the violations that are known under the weaker model on two volumes to `known_breaks`.
  void SetKnownBreaksAside();

  [[nodiscard]] bool passed() const { return violations.empty() && failed_jobs.empty(); }

  // Every number above, in one order.
  std::vector<std::uint64_t*> Fields();
};

// Counts a check, and records a violation if it fails.
void Check(Figures& figures, Invariant invariant, bool holds, std::string_view what);
void Check(Figures& figures, Invariant invariant, bool holds, std::u16string_view path);

// For messages only: `?` for what is not ASCII. Makes no call of a platform.
[[nodiscard]] std::string Shown(std::u16string_view text);

[[nodiscard]] std::string TableHead();
[[nodiscard]] std::string TableRow(std::string_view name, const Figures& figures, double seconds);
[[nodiscard]] std::string Summary(const Figures& figures);

}  // namespace tolvarine::updater::crash_lab
