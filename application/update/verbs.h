// What an application does with an installation, verb by verb.
//
// Each verb takes both locks (state_directory.h) without waiting, reads where every workspace stands
// (workspace_state.h), and refuses what the rules forbid; a refused verb has changed nothing but the
// making of S and S\lock. Verbs that change something do it in durable steps, and are repeatable: after
// a failure or a power cut at any point, the same verb with the same arguments goes on to the same end.
//
// No exception leaves a verb but exhausted memory and what a progress callback throws; everything else
// is a reason.
//
//     rule                                                                        kept by
//     1  one update at a time, across ids                                         every verb
//     2  both locks exclude verbs, resumers and updaters                          every verb
//     4  the updater runs from a copy that is verified before each start         Prepare, Start
//     5  exactly one process is waited for, and nothing is inherited             Start
//     6  an update is given up by renaming, stage first                           Abandon
//     9  nothing but the updater is started while the installation is not whole  Start
//    10  what the updater would fail at is found before                           Check, Prepare

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "release/signed_release.h"
#include "state/ledger.h"
#include "state/state_directory.h"
#include "state/workspace_state.h"
#include "update/progress.h"
#include "update/reason.h"

namespace tolvarine::updater::application {

// --- Status --------------------------------------------------------------------------------------

struct WorkspaceStatus {
  std::u16string id;
  WorkspaceReport report;
};

struct InstallationStatus {
  VerbResult result;
  std::vector<WorkspaceStatus> workspaces;              // By id.
  std::optional<ReleaseDescription> installed_release;  // Verified; nothing without one.
  Ledger ledger;
};

// Reads everything and changes nothing; makes no state directory where there is none. Where a lock
// is taken the outcome is Locked and nothing is read, since reading could get in an updater's way.
[[nodiscard]] InstallationStatus Status(const Installation& installation,
                                        std::span<const PublicKey> keys);

// --- Check and prepare ---------------------------------------------------------------------------

struct PrepareRequest {
  Path package;  // Holds the files of the release; may be its own stage.
  VerifiedRelease release;
  Path restart = u"Tolvarine.exe";  // A full path, or one relative to the target.
  Path updater;                     // TolvarineUpdater.exe; outside the target, or described there.
  Path resumer;                     // TolvarineResume.exe; likewise.
  std::uint64_t accepted_sequence = 0;
  bool clear_read_only = false;  // Clears the attribute of files that the update touches.
  ProgressCallback progress{};   // May be empty.
};

struct PreparedUpdate {
  VerbResult result;
  std::size_t staged = 0;  // Files.
  std::uint64_t staged_bytes = 0;
  std::size_t deletions = 0;
  std::size_t unchanged = 0;
  std::vector<std::u16string> abandoned;  // Updates that were given up for this one.
};

// Every reason why the update could not be done. Changes nothing but probe files (preflight.h).
[[nodiscard]] PreparedUpdate Check(const Installation& installation, const PrepareRequest& request,
                                   std::span<const PublicKey> keys);

// Makes everything durable that the update needs; its last step is the pending marker, so that the
// state is `prepared` exactly when all of it is there. Updates that are prepared, backing-up or
// restored under another id are abandoned first. A workspace of the same id that is prepared,
// backing-up or restored keeps the subset that was fixed for it, and is completed or left as it is; one
// that is installed is retired first.
[[nodiscard]] PreparedUpdate Prepare(const Installation& installation,
                                     const PrepareRequest& request,
                                     std::span<const PublicKey> keys);

// --- Start ---------------------------------------------------------------------------------------

struct StartRequest {
  std::u16string id;           // Empty for the only update that can be started.
  std::uint32_t wait_pid = 0;  // The process whose end the updater waits for; 0 for none.
};

struct StartedUpdate {
  VerbResult result;
  std::uint32_t process_id = 0;  // Of the resumer.
};

// Asks for an update that is prepared, backing-up, restored, applying, restoring or committed:
// registers the resumer at logon, writes launched.json, and starts the resumer from its verified copy,
// which waits for this verb to end. From launched.json on, the update is finished or undone without
// anyone's help.
[[nodiscard]] StartedUpdate Start(const Installation& installation, const StartRequest& request);

// --- The rest ------------------------------------------------------------------------------------

// Gives up an update that is prepared, backing-up or restored, or a remainder; an empty id stands for
// the only one. Temporaries and empty directories that a restored one left in the target are removed.
[[nodiscard]] VerbResult Abandon(const Installation& installation, const std::u16string& id);

// Notes what is installed in the ledger and removes what finished, abandoned and unneeded updates left,
// each transaction renamed away before it is removed. Baseline copies and abandoned updates stay until
// an update is installed, and nothing of an unfinished update is touched.
[[nodiscard]] VerbResult Finish(const Installation& installation,
                                const ProgressCallback& progress = {});

struct AdoptRequest {
  VerifiedRelease release;
  ProgressCallback progress{};
};

// For setup programs, and the way out of damaged and foreign: proves that the target holds every file
// of the release, writes the installed manifest and the ledger, then retires every workspace.
[[nodiscard]] VerbResult Adopt(const Installation& installation, const AdoptRequest& request);

}  // namespace tolvarine::updater::application
