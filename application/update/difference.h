// What an update from the installed files to a described release has to change.

#pragma once

#include <cstdint>
#include <vector>

#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "release/release_description.h"
#include "update/progress.h"

namespace tolvarine::updater::application {

struct UnreadableFile {
  Path path;               // Relative.
  std::uint32_t code = 0;  // The Win32 code of the open or read that failed.
};

struct Difference {
  // The files whose installed copy is not the one described, and always Tolvarine.exe.
  SourceInventory changed{};
  // Files of the installed description that the new one lacks, as far as they exist. Where no
  // description is installed, those of the new one's `removed`.
  ManagedDeletionList deletions{};
  // Files that differ from the installed description as well: somebody has changed them.
  std::vector<Path> changed_by_others{};
  std::vector<UnreadableFile> unreadable{};  // Could not be compared; in no other list.
  std::size_t unchanged = 0;   // Files that are as described; Tolvarine.exe may be one.
  bool nothing_to_do = false;  // Every file is as described, and nothing is to be deleted.
};

// Compares by size, then by SHA-256. `installed` is null where no description is installed. Throws
// Cancelled (below), and FilesystemError where it cannot be told whether a file is there.
[[nodiscard]] Difference FindDifference(const Path& target, const ReleaseDescription& release,
                                        const ReleaseDescription* installed,
                                        const ProgressCallback& progress);

// True where every file of the description is in the target, with its size and digest.
// `first_difference` receives the first that is not.
[[nodiscard]] bool HoldsRelease(const Path& target, const ReleaseDescription& release,
                                const ProgressCallback& progress, Path& first_difference);

// Thrown where a progress callback cancels.
struct Cancelled {};

}  // namespace tolvarine::updater::application
