// The processes that run from an installation.

#pragma once

#include <cstdint>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct RunningProcess {
  std::uint32_t id = 0;
  Path image;  // Full.
};

// All but this process whose program lies in the directory, as far as they can be opened; those of
// other users may be missing. Cannot fail.
[[nodiscard]] std::vector<RunningProcess> ProcessesRunningFrom(const Path& directory);

// The program that this process runs. Throws SystemError.
[[nodiscard]] Path OwnImage();

}  // namespace tolvarine::updater::application
