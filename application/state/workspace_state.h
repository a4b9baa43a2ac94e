// Where an update stands, read from disk alone.
//
// The rules of the table are tried in its order, and the first that holds counts. Reading takes no
// lock and changes nothing; whoever reads while an updater runs may get in the way of its renames, so
// the verbs read under the locks (state_directory.h).

#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "journal/journal_record.h"
#include "state/state_directory.h"

namespace tolvarine::updater::application {

// X(enumerator, name, what it says of the installation, what may come next, rule)
// clang-format off
#define TOLVARINE_WORKSPACE_STATES(X) \
  X(Unreadable, "unreadable", Unknown, \
    "wait, and read the state again", \
    "A marker, a slot, a directory or a listed file cannot be opened just now.") \
  X(Installed, "installed", New, \
    "finish", \
    "The completed marker stands without the pending marker, whatever else is left.") \
  X(Damaged, "damaged", WholeFiles, \
    "install the full package, then adopt", \
    "The transaction directory holds more than slot temporaries, and no sound slot.") \
  X(Foreign, "foreign", Unknown, \
    "install the full package, then adopt", \
    "The journal is in Apply or Rollback, and a listed file of the installation has content that " \
    "is neither its baseline nor its release.") \
  X(Applying, "applying", WholeFiles, \
    "resume", \
    "The journal is in Apply.") \
  X(Restoring, "restoring", WholeFiles, \
    "resume", \
    "The journal is in Rollback.") \
  X(Committed, "committed", New, \
    "resume", \
    "The journal is in Committed.") \
  X(Restored, "restored", Old, \
    "start again, or abandon", \
    "The journal is in RolledBack.") \
  X(BackingUp, "backing-up", Old, \
    "start again, or abandon", \
    "The journal is in Backup.") \
  X(Prepared, "prepared", Old, \
    "start, or abandon", \
    "The pending marker stands, and the transaction directory is missing, empty or holds slot " \
    "temporaries alone.") \
  X(Remainder, "remainder", Untouched, \
    "finish", \
    "None of the above.")
// clang-format on

enum class WorkspaceState {
#define TOLVARINE_STATE(enumerator, ...) enumerator,
  TOLVARINE_WORKSPACE_STATES(TOLVARINE_STATE)
#undef TOLVARINE_STATE
};

// What a state says of the installation.
enum class InstallationContent {
  Unknown,     // Nothing is known.
  Old,         // The version before the update, whole.
  New,         // The update's version, whole.
  WholeFiles,  // Each file is whole, of the old or the new version, or rightly missing.
  Untouched,   // The update has not touched it.
};

[[nodiscard]] std::string_view NameOf(WorkspaceState state);
[[nodiscard]] InstallationContent ContentOf(WorkspaceState state);
[[nodiscard]] std::string_view SentenceOf(InstallationContent content);
[[nodiscard]] std::string_view NextStepOf(WorkspaceState state);
[[nodiscard]] std::string_view RuleOf(WorkspaceState state);
[[nodiscard]] const std::vector<WorkspaceState>& AllWorkspaceStates();

// True for the states that forbid another update: applying, restoring, committed, unreadable,
// damaged and foreign.
[[nodiscard]] bool IsUnfinished(WorkspaceState state);

struct WorkspaceReport {
  WorkspaceState state = WorkspaceState::Remainder;
  std::optional<TransactionJournal> journal{};  // The newest sound record.
  bool pending = false;
  bool completed = false;
  bool launched = false;
  // What could not be opened, or whose content is foreign; may be empty.
  Path path{};
  std::uint32_t code = 0;  // The Win32 code of the open that failed, for Unreadable.
};

// Throws nothing but exhausted memory: what cannot be read makes the state Unreadable.
[[nodiscard]] WorkspaceReport ReadWorkspace(const UpdatePaths& paths);

}  // namespace tolvarine::updater::application
