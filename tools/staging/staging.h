// Staging of one update, as the application does it before it starts the updater.
//
//     <state root>\<install key>\updates\<update id>\pending.json
//     <state root>\<install key>\s\<half of the update id>\release\…
//                                                         \source-inventory.txt
//                                                         \managed-deletions.txt
//
// The two text files hold the lists of the updater's command line, for inspection.
//
// An update can be staged again, after an interrupted staging or for another run of the updater: an
// equal stage is kept. A stage with any other content is refused and not changed.

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
  Path release;                  // The release to install. It is only read.
  Path target;                   // The installation. It is only queried.
  Path state_root;               // The directory of the state directories of all installations.
  std::u16string install_key{};  // 64 lower-case hexadecimal digits.
  std::u16string update_id{};    // The same form.
  Path restart{kApplicationPath};
  Path updater{u"TolvarineUpdater.exe"};  // Only for the length of the command line.
  ManagedDeletionList deletions{};
  std::string pending_marker{};  // Its content; if empty, a small text with the update id.
};

// The arguments have canonical paths and no process to wait for. They are valid only if there are
// no problems.
struct StagedUpdate {
  Problems problems{};
  UpdaterArguments arguments{};
};

// Checks the release, the paths of its files and the length of the command line, with wait options
// of the greatest length. Changes nothing. Throws what the file operations throw.
[[nodiscard]] StagedUpdate PlanUpdate(const StagingRequest& request);

// Does the same checks, then makes the stage, the text files and last the pending marker. Changes
// nothing if the checks find problems. A stage with other content, or a layout that the updater
// would refuse, is found only after directories are made. If it throws, files that were made stay;
// the release is in its stage completely or not at all.
[[nodiscard]] StagedUpdate StageUpdate(const StagingRequest& request);

// Returns the files of an earlier release that the new release does not have.
[[nodiscard]] ManagedDeletionList DeletionsSince(const Path& previous, const Path& release);

// Returns the canonical form of a path, which may be relative to the current directory and need not
// exist. Throws FilesystemError.
[[nodiscard]] Path FullPath(const Path& path);

}  // namespace tolvarine::updater::staging
