// The invariants. The list below is their only source: the enumeration, the names in reports and
// the table in docs/crash-model.md come from it.

#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace tolvarine::updater::verb_lab {

// X(enumerator, name in reports, rule)
#define VERB_LAB_INVARIANTS(X)                                                                    \
  X(kOneRelease, "one-release",                                                                   \
    "While no update has to be resumed, the installation is exactly one release, apart from "     \
    "what a person or a full package wrote.")                                                     \
  X(kOnlySigned, "only-signed",                                                                   \
    "An updater leaves each file as it was before the update or as the release describes it; no " \
    "other verb changes a file of the installation.")                                             \
  X(kBaselineKept, "baseline-kept",                                                               \
    "Until an update is installed, its old files are whole in the target or in the backup. "      \
    "Baseline copies that were given up stay until an update is installed.")                      \
  X(kRefusedChangesNothing, "refused-changes-nothing",                                            \
    "A refused verb, `status` and `check` have changed nothing. A preparation that is cancelled " \
    "or finds another package has changed only stages and copies.")                               \
  X(kOneUpdate, "one-update",                                                                     \
    "At most one workspace is prepared, under way, restored, damaged or foreign.")                \
  X(kLedgerRemembers, "ledger-remembers",                                                         \
    "The highest sequence never falls, and is that of what was installed or adopted.")            \
  X(kPreparedComplete, "prepared-complete",                                                       \
    "Where the pending marker stands, request, signed release and program copy are whole, and "   \
    "the stage holds exactly what differed when the update was first prepared. An undisturbed "   \
    "preparation that is done fits the installation.")                                            \
  X(kStageKept, "stage-kept",                                                                     \
    "No verb removes the stage of an unfinished update, and no workspace that can be given up "   \
    "goes before its stage.")                                                                     \
  X(kStatesTrue, "states-true",                                                                   \
    "`status` names the state that the laboratory knows, no state follows that the verb cannot "  \
    "lead to, and `damaged` and `foreign` come from outside and are never started.")              \
  X(kResultsTrue, "results-true",                                                                 \
    "Outcome and reasons are documented ones that agree with each other; undisturbed, they are "  \
    "those that the disk asks for. No exception leaves a verb.")                                  \
  X(kConverges, "converges",                                                                      \
    "Undisturbed, whatever is unfinished ends, and the newest release is prepared, started and "  \
    "finished: the target is exactly it, with no workspace, stage, temporary or given-up copy.")  \
  X(kNothingLeaked, "nothing-leaked", "A verb that has ended has closed every handle.")

#define VERB_LAB_ENUMERATOR(enumerator, ...) enumerator,
enum class Invariant { VERB_LAB_INVARIANTS(VERB_LAB_ENUMERATOR) };
#undef VERB_LAB_ENUMERATOR

struct InvariantRow {
  std::string_view name;
  std::string_view rule;
};

#define VERB_LAB_ROW(enumerator, name, rule) InvariantRow{name, rule},
inline constexpr std::array kInvariants = {VERB_LAB_INVARIANTS(VERB_LAB_ROW)};
#undef VERB_LAB_ROW

[[nodiscard]] constexpr std::string_view NameOf(Invariant invariant) {
  return kInvariants[static_cast<std::size_t>(invariant)].name;
}

struct Violation {
  Invariant invariant{};
  std::string what;
};

}  // namespace tolvarine::updater::verb_lab
