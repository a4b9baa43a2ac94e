// Copies whose bytes are hashed on the way: of a release into its stage, of installed files for the
// way back, and of the updater's program.

#pragma once

#include <optional>
#include <string>

#include "lists/source_inventory.h"
#include "release/signed_release.h"
#include "state/request.h"
#include "state/state_directory.h"
#include "update/difference.h"
#include "update/progress.h"

namespace tolvarine::updater::application {

// Brings exactly the files of `inventory` into a stage of the update and returns its directory.
//
// Where `package` lies in the update's stages already, it becomes the stage: files that are not in the
// inventory are removed from it. Otherwise a stage that holds the inventory is used as it is, and any
// other is made anew: each file is locked, copied with its digest taken from the copied bytes, and
// flushed, in a directory that is renamed once it is complete.
//
// Throws VerbFailure (PackageMismatch) where a file of the package is missing or not the one
// described, Cancelled, and what the file operations throw. The stage is then missing or unfinished.
[[nodiscard]] Path StageRelease(const UpdatePaths& paths, const Path& package,
                                const SourceInventory& inventory, const ProgressCallback& progress);

// Copies installed files that `installed` describes and that the update replaces or deletes to S\former,
// each durably under its digest; a copy that is there already stays. Files of any other content are
// left out, since they could not be verified. Copies of another release are removed before. Throws
// Cancelled and what the file operations throw.
void KeepFormerFiles(const Installation& installation, const VerifiedRelease& installed,
                     const Difference& difference, const ProgressCallback& progress);

// Copies a program into the state directory under `name`, durably. One that is the copy already stays.
// A program in the target must be as the installed release describes it, where there is one. Throws
// VerbFailure (ProgramChanged) otherwise, and what the file operations throw.
[[nodiscard]] ProgramCopy CopyProgram(const Installation& installation, const Path& program,
                                      PathView name, const ReleaseDescription* installed);

}  // namespace tolvarine::updater::application
