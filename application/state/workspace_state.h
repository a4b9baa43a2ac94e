// Where an update stands, read from disk alone.
//
// The rules of the table are tried in its order, and the first that holds counts. Reading takes no
// lock and changes nothing. It opens everything for reading alone and shares it with everybody, but
// Windows refuses a rename onto a file that is open, so the verbs read under the locks
// (state_directory.h), while no updater runs.

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
    "The transaction directory holds more than slot temporaries, and no sound slot; or the newest " \
    "sound slot is of another installation.") \
  X(Foreign, "foreign", Unknown, \
    "install the full package, then adopt", \
    "The journal is in `Apply` or `Rollback`, and a listed file of the installation has content " \
    "that is neither its baseline's nor its release's.") \
  X(Applying, "applying", WholeFiles, \
    "start again, and nothing else", \
    "The journal is in `Apply`.") \
  X(Restoring, "restoring", WholeFiles, \
    "start again, and nothing else", \
    "The journal is in `Rollback`.") \
  X(Committed, "committed", New, \
    "start again, and nothing else", \
    "The journal is in `Committed`.") \
  X(Restored, "restored", Old, \
    "start again, or abandon", \
    "The journal is in `RolledBack`.") \
  X(BackingUp, "backing-up", Old, \
    "start again, or abandon", \
    "The journal is in `Backup`.") \
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

// X(enumerator, what it says of the installation)
// clang-format off
#define TOLVARINE_INSTALLATION_CONTENTS(X) \
  X(Unknown, "Nothing is known of the installation.") \
  X(Old, "The installation is the old version, whole.") \
  X(New, "The installation is the new version, whole.") \
  X(WholeFiles, "Each file of the installation is whole, of the old or of the new version; both " \
    "may occur.") \
  X(Untouched, "The update has not touched the installation.")
// clang-format on

// What a state says of the installation. A listed file that somebody has removed meanwhile
// contradicts none of it.
enum class InstallationContent {
#define TOLVARINE_CONTENT(enumerator, sentence) enumerator,
  TOLVARINE_INSTALLATION_CONTENTS(TOLVARINE_CONTENT)
#undef TOLVARINE_CONTENT
};

[[nodiscard]] std::string_view NameOf(WorkspaceState state);
// What is true in every workspace of this state. WorkspaceReport::content can say more.
[[nodiscard]] InstallationContent ContentOf(WorkspaceState state);
[[nodiscard]] std::string_view SentenceOf(InstallationContent content);
[[nodiscard]] std::string_view NextStepOf(WorkspaceState state);
[[nodiscard]] std::string_view RuleOf(WorkspaceState state);
[[nodiscard]] const std::vector<WorkspaceState>& AllWorkspaceStates();

// The tables of docs/states.md.
[[nodiscard]] std::string StatesAsMarkdown();

// True for the states that forbid another update: applying, restoring, committed, unreadable,
// damaged and foreign.
[[nodiscard]] bool IsUnfinished(WorkspaceState state);

struct WorkspaceReport {
  WorkspaceState state = WorkspaceState::Remainder;
  // New for Applying where every entry is counted and every listed file is the release's: only the
  // save of Committed is missing. WholeFiles for Prepared where the completed marker stands, too:
  // without a journal nothing tells whether the update was carried out. Otherwise that of the
  // state.
  InstallationContent content = InstallationContent::Untouched;
  std::optional<TransactionJournal> journal{};  // The newest sound record.
  bool pending = false;
  bool completed = false;
  bool launched = false;
  // What could not be opened, or whose content is foreign; may be empty.
  Path path{};
  // The Win32 code of the call that failed, for Unreadable; 0 where the system's hashing cannot be
  // used.
  std::uint32_t code = 0;
};

// Throws nothing but exhausted memory: what cannot be read makes the state Unreadable.
[[nodiscard]] WorkspaceReport ReadWorkspace(const UpdatePaths& paths);

}  // namespace tolvarine::updater::application
