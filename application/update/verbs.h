// What an application does with an installation, verb by verb.
//
// Each verb takes both locks (state_directory.h) without waiting, reads where every workspace
// stands (workspace_state.h), and refuses what the rules forbid; a verb that the rules refuse has
// changed nothing but the making of S and S\lock. Verbs that change something do it in durable
// steps, and are repeatable: after a failure or a power cut at any point, the same verb with the
// same arguments goes on to the same end.
//
// No exception leaves a verb: what a progress callback throws, too, becomes a reason, if it derives
// from std::exception.
//
//     rule                                                                        kept by
//     1  one update at a time, across ids                                         every verb
//     2  both locks exclude other verbs and updaters                              every verb
//     4  the updater runs from a copy that is verified before each start         Prepare, Start
//     5  exactly one process is waited for, and nothing is inherited             Start
//     6  an update is given up by renaming, stage first                  Abandon, Prepare, Adopt
//     7  no stage is removed that an unfinished update needs                      every verb
//     8  slot temporaries that stand alone are removed before a start            Start
//     9  nothing but the updater is started while the installation is not whole  Start
//    10  what the updater would fail at is found before                           Check, Prepare

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "reasons/reason.h"
#include "release/signed_release.h"
#include "state/ledger.h"
#include "state/state_directory.h"
#include "state/workspace_state.h"
#include "system/processes.h"
#include "update/progress.h"

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
// state is `prepared` exactly when all of it is there. Once the release is staged, updates that are
// prepared, backing-up or restored under another id are abandoned, and installed ones are noted in
// the ledger and retired; a preparation that is cancelled or fails before changes the state of none
// of them. A workspace of the same id that is prepared, backing-up or restored keeps the subset that
// was fixed for it, as long as that fits the installation.
[[nodiscard]] PreparedUpdate Prepare(const Installation& installation,
                                     const PrepareRequest& request,
                                     std::span<const PublicKey> keys);

// --- Start ---------------------------------------------------------------------------------------

struct StartRequest {
  std::u16string id;  // Empty for the only update that can be started.
  // The process whose end the updater waits for; 0 for none.
  std::uint32_t wait_pid = platform::GetCurrentProcessId();
  Path updater{};  // Copied where the copy that was prepared has gone or has changed; may be empty.
  ProgressCallback progress{};
};

struct StartedUpdate {
  VerbResult result;
  std::uint32_t process_id = 0;  // Of the updater.
};

// Starts the updater of an update that is prepared, backing-up, restored, applying, restoring or
// committed, from its verified copy, with the lists and paths of the request or, where a journal
// stands, of the journal. An update that has changed nothing yet is refused where the installation
// is not the one that it was prepared for: another package may have been installed since. Writes
// launched.json first. The updater's end is not waited for.
[[nodiscard]] StartedUpdate Start(const Installation& installation, const StartRequest& request);

// --- The rest ------------------------------------------------------------------------------------

// Gives up an update that is prepared, backing-up or restored, or a remainder; an empty id stands
// for the only such one. Temporaries and empty directories that a restored one left in the target are
// removed.
[[nodiscard]] VerbResult Abandon(const Installation& installation, const std::u16string& id);

// Notes what is installed in the ledger, verifies the whole installation against the release that
// was installed last (a file that differs is a warning), and removes what installed updates and
// remainders have left. Updates that were given up, with their baseline copies, stay until another
// one is installed. Refused while an update is unfinished.
[[nodiscard]] VerbResult Finish(const Installation& installation,
                                const ProgressCallback& progress = {});

struct AdoptRequest {
  VerifiedRelease release;
  ProgressCallback progress{};
};

// For setup programs, and the way out of damaged and foreign: proves that the target holds every
// file of the release, and none that only the installed release, an update or its journal has; then
// notes it in the ledger, retires every workspace, and writes the installed manifest.
[[nodiscard]] VerbResult Adopt(const Installation& installation, const AdoptRequest& request,
                               std::span<const PublicKey> keys);

}  // namespace tolvarine::updater::application
