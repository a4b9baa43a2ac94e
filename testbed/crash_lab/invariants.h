// The invariants. The list below is their only source: the enumeration, the names in reports and
// the table in docs/crash-model.md come from it.

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace tolvarine::updater::crash_lab {

// X(enumerator, name in reports, when it is checked, under the weaker model on two volumes, rule)
#define CRASH_LAB_INVARIANTS(X)                                                                   \
  X(kFinalNamesWhole, "final-names-whole", kAlways, kHolds,                                       \
    "Each final name holds the complete old file or the complete new one, with its attributes. "  \
    "It holds nothing only "                                                                      \
    "if the baseline or the release has no such file.")                                           \
  X(kAuthenticatedBytes, "authenticated-bytes-only", kAlways, kHolds,                             \
    "The target contains no file and no directory that neither list names and that was not there" \
    " before.")                                                                                   \
  X(kBaselineKept, "baseline-kept", kAlways, kHolds,                                              \
    "Until `Committed` is durable, every old file is whole in the target or in the backup.")      \
  X(kSlotValid, "slot-valid", kAlways, kHolds,                                                    \
    "From the first save until the transaction directory is removed, one slot is valid and at "   \
    "most one save old. Even generations are in `journal.0`, odd ones in `journal.1`.")           \
  X(kAnnounced, "announced-before-acting", kAlways, kHolds,                                       \
    "Only the entry that the journal announces changes under its final name.")                    \
  X(kExecutableLast, "executable-last", kAlways, kMayBreak,                                       \
    "In `Apply`, if the new executable is in place, every other file is new as well.")            \
  X(kCorruptOnlyWhereAccepted, "corrupt-only-where-accepted", kAlways, kMayBreak,                 \
    "A journal is unreadable only inside the first save or inside the final removal.")            \
  X(kBystandersUntouched, "bystanders-untouched", kAlways, kHolds,                                \
    "Foreign files, the release and everything outside the target keep every byte.")              \
  X(kMarkersWhole, "markers-whole", kAlways, kHolds,                                              \
    "The manifest and the markers are whole, and new only after `Committed` is durable.")         \
  X(kStateReadOnly, "state-read-only", kAlways, kHolds,                                           \
    "Reading where the update stands changes nothing on the disks and leaves no handle open.")    \
  X(kStateByTheDisk, "state-by-the-disk", kAlways, kHolds,                                        \
    "The state that is read is the one that the checker's own reading of the markers, the slots " \
    "and the listed files gives.")                                                                \
  X(kStateTrue, "state-true", kAlways, kMayBreak,                                                 \
    "What the state says of the installation is true of it.")                                     \
  X(kStateHarshWhereCaused, "state-harsh-where-caused", kAlways, kMayBreak,                       \
    "The state is `damaged` only where somebody has changed the slots, and `foreign` only where " \
    "somebody has changed the installation.")                                                     \
  X(kEndsWhole, "ends-whole", kAtEnd, kMayBreak,                                                  \
    "The target is exactly the release or exactly the baseline, apart from foreign files.")       \
  X(kEndsByTheTable, "ends-by-the-table", kAtEnd, kMayBreak,                                      \
    "Exit code, message boxes, log records, markers, `launched.json` and what is restarted "      \
    "agree.")                                                                                     \
  X(kEndLasts, "end-lasts", kAtEnd, kHolds,                                                       \
    "A power cut directly after the run leaves installed what exit code 0, 6 or 7 reported, the " \
    "moved markers after 0, and a baseline that was reported as restored (not checked under the " \
    "weaker model).")                                                                             \
  X(kNoTemporaryLeft, "no-temporary-left", kAtEnd, kMayBreak,                                     \
    "A run without disturbance leaves no temporary file.")                                        \
  X(kNoDirectoryLeft, "no-directory-left", kAtEnd, kMayBreak,                                     \
    "A run without disturbance leaves no directory in the target that the update made and that "  \
    "the version in place does not need.")                                                        \
  X(kNothingLeaked, "nothing-leaked", kAtEnd, kHolds, "The run has closed every handle.")         \
  X(kConverges, "converges", kAtEnd, kMayBreak,                                                   \
    "Undisturbed runs end installed, at the latest the third; on one volume the first one does, " \
    "unless a rollback was under way.")

// At every moment of a run and on every disk that a power cut leaves, or when a run has ended.
enum class Occasion { kAlways, kAtEnd };

// Whether it is known to break where a write-through rename returns before the medium has it and
// the journal is on another volume than the installation.
enum class WeakerModel { kHolds, kMayBreak };

#define CRASH_LAB_ENUMERATOR(enumerator, ...) enumerator,
enum class Invariant { CRASH_LAB_INVARIANTS(CRASH_LAB_ENUMERATOR) };
#undef CRASH_LAB_ENUMERATOR

struct InvariantRow {
  std::string_view name;
  Occasion occasion;
  WeakerModel on_two_volumes;
  std::string_view rule;
};

#define CRASH_LAB_ROW(enumerator, name, occasion, weaker, rule) \
  InvariantRow{name, Occasion::occasion, WeakerModel::weaker, rule},
inline constexpr std::array kInvariants = {CRASH_LAB_INVARIANTS(CRASH_LAB_ROW)};
#undef CRASH_LAB_ROW

inline constexpr std::size_t kInvariantCount = kInvariants.size();

[[nodiscard]] constexpr const InvariantRow& RowOf(Invariant invariant) {
  return kInvariants[static_cast<std::size_t>(invariant)];
}

// The two tables of docs/crash-model.md.
[[nodiscard]] std::string InvariantsAsMarkdown();

}  // namespace tolvarine::updater::crash_lab
