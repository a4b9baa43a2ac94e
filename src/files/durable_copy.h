// Copies that appear under their final name complete or not at all.
//
// A file reaches its final name only by a write-through rename of a complete, flushed temporary
// beside it. A crash at any moment leaves the old content or the new content under that name, and
// at worst a stale temporary, which the next attempt clears. The temporary's name is the caller's;
// no directory is ever flushed.

#pragma once

#include "files/locked_release_file.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Copies a file of the installation or of the backup to `destination`, making its parent
// directories. On return the copy is durable under its final name. On failure raises SystemError;
// the destination is untouched, and a temporary may stay beside it until the next attempt.
void CopyFileDurably(const Path& source, const Path& destination, const Path& temporary);

// Copies a locked release file, from its start, to a temporary that this call creates and nobody
// else can open while it is written, making its parent directories. On return the temporary is
// complete and flushed; the rename is the caller's, while the lock is held. On failure raises
// SystemError or FilesystemError; a temporary that was created is removed again, as far as it can
// be.
void CopyLockedFileToTemporary(const LockedReleaseFile& file, const Path& temporary);

}  // namespace tolvarine::updater
