// The directory of a release as its maker has it: what is in it, and what keeps it from being
// installed. The updater refuses such a release with one sentence or none; a maker needs to know
// which file and why, and all of it at once.

#pragma once

#include <string>
#include <vector>

#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct ReleaseTree {
  // Sentences of UTF-8 text; paths stand in double quotes.
  std::vector<std::string> problems;
  SourceInventory files;  // With digests; complete only without problems.
};

// Walks a directory, checks every name and entry, and hashes every file under the lock that the
// updater takes. Problems are: a directory that is missing, a link, or unreadable; names that no
// release may hold; links, other reparse points and files with several names; files that cannot be
// locked and read; two paths that differ in case alone; a path too long for a list; no
// Tolvarine.exe. Changes nothing.
[[nodiscard]] ReleaseTree ReadReleaseTree(const Path& release);

}  // namespace tolvarine::updater::application
