// Making directories. See file_operations.h.

#pragma once

#include <cstdint>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// Makes one directory. Returns 0 also if it exists already, directly or behind a link.
[[nodiscard]] std::uint32_t CreateOneDirectory(const Path& path);

// Makes a directory and its parents, from the root on. Returns 0 if the last one exists in the end.
// Otherwise returns the last code outside the not-found family or, if there was none, the last
// code. An empty path gives ERROR_PATH_NOT_FOUND. A root alone gives 0 without a call.
[[nodiscard]] std::uint32_t CreateDirectories(PathView path);

}  // namespace tolvarine::updater
