// What the laboratory has found, and how it is told.

#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tolvarine::updater::crash_lab {

// What must hold. The first group at every moment, live and after every cut; the second when a run
// has ended by itself; the last when runs are made until nothing is left to do.
enum class Invariant {
  kFinalNamesWhole,     // Each final name: the complete old file, the new one, or rightly nothing.
  kAuthenticatedBytes,  // Nothing that no list names stands under a target name.
  kBaselineKept,        // Until Committed, every old file is in the target or the backup, whole.
  kSlotValid,           // From the first save to the removal, a slot is valid, a save old at most.
  kAnnounced,           // Nothing changes under a final name that the journal has not announced.
  kExecutableLast,      // While applying, the new executable stands beside new files alone.
  kCorruptOnlyWhereAccepted,  // Corrupt: inside the first save or the final removal, and nowhere else.
  kBystandersUntouched,       // Foreign files, the release and everything else keep every byte.
  kMarkersWhole,              // Manifest and markers appear whole, and only after Committed.
  kEndsWhole,                 // The target is exactly the release, or exactly the baseline.
  kEndsByTheTable,            // Exit code, box, log record, markers and restart agree.
  kNoTemporaryLeft,           // No temporary outlives a run.
  kNoDirectoryLeft,           // No directory that the update made outlives it without need.
  kNothingLeaked,             // No handle does, either.
  kConverges,                 // Undisturbed runs end installed.
};

inline constexpr std::size_t kInvariantCount = 15;

[[nodiscard]] std::string_view NameOf(Invariant invariant);

struct Violation {
  Invariant invariant{};
  std::string what;
  std::string replay;  // The arguments that lead there again.
};

// Outcomes that are prescribed although they look harsh, each in a window of its own. They are no
// violations; they are counted.
struct AcceptedOutcomes {
  std::uint64_t corrupt_in_first_save = 0;  // The target is untouched.
  std::uint64_t corrupt_in_removal = 0;     // The release is whole.
  // On two volumes, a counted removal that was not forced came back: the file that was to be gone
  // stands again, whole.
  std::uint64_t removal_came_back = 0;
  // Somebody swapped a directory between the proof of a path and its use, and what was meant for
  // the target went where the swapped directory leads.
  std::uint64_t redirected_writes = 0;
};

// The figures of one scenario, or of all.
struct Figures {
  std::uint64_t cuts = 0;          // Calls at which the power was cut.
  std::uint64_t cases = 0;         // Other things that were done to a run or a disk.
  std::uint64_t states = 0;        // Different states of the disks among them.
  std::uint64_t images = 0;        // Disks that cuts left.
  std::uint64_t disks = 0;         // Different ones among them, on which the updater was started.
  std::uint64_t second_order = 0;  // Of these, after a second or a third cut.
  std::uint64_t runs = 0;          // Runs of the updater.
  std::uint64_t skipped = 0;       // Losses beyond the bound, not looked at.
  AcceptedOutcomes accepted;
  std::array<std::uint64_t, kInvariantCount> checks{};
  std::vector<Violation> violations;
  std::set<std::string> redirected;  // Between which calls a write was led redirected.

  void Add(const Figures& other);

  // Every number above, in one order.
  std::vector<std::uint64_t*> Fields();
};

// Counts a check, and records a violation where it fails.
void Check(Figures& figures, Invariant invariant, bool holds, std::string_view what);
void Check(Figures& figures, Invariant invariant, bool holds, std::u16string_view path);

// For messages only: `?` for what is not ASCII. Asks nothing of a platform.
[[nodiscard]] std::string Shown(std::u16string_view text);

[[nodiscard]] std::string TableHead();
[[nodiscard]] std::string TableRow(std::string_view name, const Figures& figures, double seconds);
[[nodiscard]] std::string Summary(const Figures& figures);

}  // namespace tolvarine::updater::crash_lab
