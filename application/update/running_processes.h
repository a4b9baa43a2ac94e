// The processes that run from an installation, and those that have a file of it open.

#pragma once

#include <cstdint>
#include <string>
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

struct FileHolder {
  std::uint32_t process_id = 0;
  std::u16string application_name;  // As a person knows it; may be empty.
};

// Who has a file open, as far as the system's restart manager knows. Cannot fail.
[[nodiscard]] std::vector<FileHolder> HoldersOf(const Path& file);

// The program that this process runs. Throws SystemError.
[[nodiscard]] Path OwnImage();

}  // namespace tolvarine::updater::application
