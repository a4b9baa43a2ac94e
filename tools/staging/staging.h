// Laying out the workspace of one update, as the application does before it starts the updater.
//
//     <state root>\<install key>\updates\<update id>\pending.json
//     <state root>\<install key>\s\<half of the update id>\release\…
//                                                         \source-inventory.txt
//                                                         \managed-deletions.txt
//
// The two texts are what the updater's command line holds, for whoever wants to look at them.
//
// An update can be staged again, by an interrupted staging or for a further run of the updater:
// what is there already and is the same stays. A stage that holds anything else is left alone.

#pragma once

#include <string>

#include "driver/command_line.h"
#include "lists/managed_deletion_list.h"
#include "lists/release_path.h"
#include "staging/layout.h"
#include "staging/release_check.h"

namespace tolvarine::updater::staging {

// Paths may be relative to the current directory.
struct StagingRequest {
  Path release;                  // What to install. It is only read.
  Path target;                   // The installation. It is only looked at.
  Path state_root;               // What holds the state directories of all installations.
  std::u16string install_key{};  // 64 lower-case hexadecimal digits.
  std::u16string update_id{};    // The same form.
  Path restart{kApplicationPath};
  Path updater{u"TolvarineUpdater.exe"};  // For the length of its command line only.
  ManagedDeletionList deletions{};
  std::string pending_marker{};  // Its content; empty for a small text with the update's id.
};

// The arguments have canonical paths and no process to wait for. They count only without problems.
struct StagedUpdate {
  Problems problems{};
  UpdaterArguments arguments{};
};

// Checks the release, the places of its files, and that the command line can hold it all, with the
// wait options at their longest. Changes nothing. Throws what the file operations throw.
[[nodiscard]] StagedUpdate PlanUpdate(const StagingRequest& request);

// The same, and then lays everything out, the pending marker last. Where the plan has problems nothing
// is changed; a stage that holds something else, or a layout that the updater would refuse, comes out
// later. On whatever is thrown, what has been made stays, and the release is in its stage as a whole
// or not at all.
[[nodiscard]] StagedUpdate StageUpdate(const StagingRequest& request);

// The files of an earlier release that the new one no longer has.
[[nodiscard]] ManagedDeletionList DeletionsSince(const Path& previous, const Path& release);

// The path in canonical form; a relative one is taken from the current directory. It need not
// exist. Throws FilesystemError.
[[nodiscard]] Path FullPath(const Path& path);

}  // namespace tolvarine::updater::staging
