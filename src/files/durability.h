// Flushing a file, and renaming it durably. See file_operations.h. Both take the extended form of a
// path.

#pragma once

#include "text/path_algebra.h"

namespace tolvarine::updater {

// On return the content and metadata of the file are on stable storage. The file is opened for
// writing: throws SystemError also for a read-only file, a directory, and a file that somebody else
// has open for writing.
void FlushFile(PathView path);

// Renames `from` to `to` and replaces a file that is there. On return the rename is on stable
// storage. Throws SystemError; both files are then unchanged. Nothing is retried.
void ReplaceFileDurably(PathView from, PathView to);

}  // namespace tolvarine::updater
