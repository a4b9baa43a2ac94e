// Copies that appear under their final name complete or not at all.
//
// A file gets its final name only by the write-through rename of a complete, flushed temporary in
// the same directory. A crash at any moment leaves the old or the new content under that name, and
// at worst a stale temporary, which the next attempt removes. The caller chooses the temporary's
// name. Directories that were made are not removed after a failure.

#pragma once

#include "files/locked_release_file.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Copies a file of the installation or of the backup to `destination` by way of `temporary`, which
// must be in the same directory. Makes the destination's parent directories. On return the copy is
// on stable storage under its final name; its content is not compared. On failure throws
// SystemError: the destination is unchanged, and the temporary may be left. Directories are made
// with the path as given; every other call takes the extended form.
//
// The copy has the attributes of its source. A read-only file therefore cannot be copied: the flush
// of its temporary fails, and the next attempt cannot remove the read-only temporary.
void CopyFileDurably(const Path& source, const Path& destination, const Path& temporary);

// Copies a locked release file to `temporary`, which nobody else can open while it is written.
// Makes its parent directories and removes a stale temporary. On return the temporary is complete
// and on stable storage. The caller renames it while the file is still locked.
//
// The file's read position must be at the start. It is at the end on return, so a second call would
// copy nothing.
//
// Throws FilesystemError for the directories and SystemError for everything else. A stale temporary
// that cannot be removed fails the call and stays. A temporary that was created is removed after a
// failure, if it can be. Paths are handed to the platform as given.
void CopyLockedFileToTemporary(const LockedReleaseFile& file, const Path& temporary);

}  // namespace tolvarine::updater
