// Taking workspaces and stages out of the way: by renaming, so that a power cut leaves each of them
// either in its place or given up, never half of it.

#pragma once

#include <string>

#include "state/state_directory.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// Renames a directory to S\abandoned\<16 digits>, with write-through. One that is missing is
// success. Throws SystemError; the directory then stands as it did.
void MoveToAbandoned(const Installation& installation, const Path& directory);

// Moves the stages of an update and then its workspace, each as above.
void AbandonUpdate(const Installation& installation, const std::u16string& id);

// Removes the temporaries that an updater has left in the target, as far as its journal or else its
// request names them and as they can be removed.
void SweepTemporaries(const Installation& installation, const WorkspaceStatus& workspace);

// Removes the temporaries and empty directories that an update in `restored` has left in the
// target, as far as they can be removed. Does nothing for any other state.
void SweepRestored(const Installation& installation, const WorkspaceStatus& workspace);

// Removes a directory with all that it holds. Throws FilesystemError; what is gone is gone. One
// that is missing is success.
void RemoveDirectory(const Path& directory);

}  // namespace tolvarine::updater::application
