// Copies that appear under their final name complete or not at all.
//
// A file reaches its final name only by a write-through rename of a complete, flushed temporary
// beside it. A crash at any moment leaves the old content or the new content under that name, and
// at worst a stale temporary, which the next attempt clears. The temporary's name is the caller's;
// no directory is ever flushed. Directories that were made stay, whatever follows.

#pragma once

#include "files/locked_release_file.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Copies a file of the installation or of the backup to `destination`, making the destination's
// parent directories; `temporary` lies beside it. On return the copy is durable under its final
// name; its content is not compared. On failure throws SystemError; the destination is untouched,
// and a temporary may stay until the next attempt. Directories are made with the path as given; all
// else takes the extended form.
//
// Attributes travel with the copy: a read-only file cannot be copied this way, and its temporary
// stands in the way of the next attempt.
void CopyFileDurably(const Path& source, const Path& destination, const Path& temporary);

// Copies a locked release file to a temporary that this call creates and nobody else can open while
// it is written, making its parent directories and removing a stale one. The file's read position
// must be at the start, and is at the end on return: a second call would copy nothing. On return
// the temporary is complete and flushed; the rename is the caller's, while the lock is held.
//
// On failure throws FilesystemError for the directories and SystemError for the rest. A stale
// temporary that cannot be removed makes the call fail and stays; one that was created is removed
// again, as far as it can be. The paths are taken as given.
void CopyLockedFileToTemporary(const LockedReleaseFile& file, const Path& temporary);

}  // namespace tolvarine::updater
