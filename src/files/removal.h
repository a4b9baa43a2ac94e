// Removing entries and trees. See file_operations.h.

#pragma once

#include <cstdint>

#include "text/path_algebra.h"

namespace tolvarine::updater {

struct RemovalResult {
  bool removed = false;
  std::uint32_t error = 0;
};

// Removes a file, an empty directory or a link, read-only or not; never what a link leads to. A
// path that names nothing is success with nothing removed.
RemovalResult RemoveEntry(const Path& path);

struct TreeRemovalResult {
  std::uint64_t removed = 0;  // Files and directories.
  std::uint32_t error = 0;
};

// Removes a directory with everything in it. Links are removed and not followed. Entries are
// removed in the order of the directory, except that `last`, if it is an entry of `path` itself, is
// removed after all others. The first failure ends the removal; what was removed stays removed. A
// path that names nothing is success.
[[nodiscard]] TreeRemovalResult RemoveTree(const Path& path, const Path& last = {});

}  // namespace tolvarine::updater
