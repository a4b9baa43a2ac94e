// What an update changes is fixed when it is prepared. It holds as long as the installation is the
// one that it was chosen for: a full package that is installed over a prepared update makes it
// wrong.

#pragma once

#include <optional>

#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "state/workspace_state.h"
#include "update/difference.h"

namespace tolvarine::updater::application {

struct FixedSubset {
  SourceInventory inventory;
  ManagedDeletionList deletions;
};

// The lists of the journal, or of the request while there is no journal. Nothing where neither is
// sound.
[[nodiscard]] std::optional<FixedSubset> FixedSubsetOf(const UpdatePaths& paths,
                                                       const WorkspaceReport& report);

// The first file that the subset was not chosen for, relative; empty where it holds. `fresh` is the
// difference between the installation and the release now: each of its files has to be in the
// subset, and its deletions, too, where `with_deletions`. Where a journal stands, which has applied
// nothing, every file that it names has to be as it was. A file that cannot be read just now is
// passed over.
[[nodiscard]] Path FindDeviation(const Path& target, const WorkspaceReport& report,
                                 const FixedSubset& subset, const Difference& fresh,
                                 bool with_deletions);

}  // namespace tolvarine::updater::application
