// Durable copies of marker files: the pending marker becomes the installed manifest.

#pragma once

#include "text/path_algebra.h"

namespace tolvarine::updater {

// Copies a file to a temporary, which has ".tmp" appended to the destination, flushes it and
// renames it onto the destination with write-through. Replaces an existing destination and an
// existing temporary. Uses the paths as given. Returns true if the destination holds the whole
// copy, durably. Returns false on any failure; the destination is then unchanged. After a failing
// copy the temporary stays, and the next call replaces it; after a failing flush or rename it is
// deleted, if possible.
[[nodiscard]] bool CopyMarkerDurably(const Path& source, const Path& destination);

}  // namespace tolvarine::updater
