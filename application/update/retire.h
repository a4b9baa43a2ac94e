// Taking workspaces and stages out of the way: by renaming, so that a power cut leaves each of them
// either in its place or given up, never half of it.

#pragma once

#include <set>
#include <string>

#include "state/state_directory.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// Renames a directory to S\abandoned\<16 digits>, with write-through, and returns its new path;
// empty where it is missing. Throws FilesystemError; the directory then stands as it did.
Path MoveToAbandoned(const Installation& installation, const Path& directory);

// Moves the stages of an update and then its workspace, each as above.
void AbandonUpdate(const Installation& installation, const std::u16string& id);

// Removes the temporaries that an updater has left in the target, as far as its journal or else its
// request names them and as they can be removed.
void SweepTemporaries(const Installation& installation, const WorkspaceStatus& workspace);

// Removes the temporaries and empty directories that an update in `restored` has left in the
// target, as far as they can be removed. Does nothing for any other state.
void SweepRestored(const Installation& installation, const WorkspaceStatus& workspace);

// Removes a directory with all that it holds, or a link without what it leads to. Throws
// FilesystemError; what is gone is gone. One that is missing is success.
void RemoveDirectory(const Path& directory);

// Removes everything in a directory but the names that are kept, as above. A directory that is
// missing is success.
void RemoveAllBut(const Path& directory, const std::set<std::u16string>& kept);

}  // namespace tolvarine::updater::application
