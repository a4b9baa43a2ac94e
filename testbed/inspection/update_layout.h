// The paths of one update, and the inventory of a release, for tests that start the updater by
// themselves: without a description, and so without the application's side.

#pragma once

#include <string_view>

#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::inspection {

// `state` is the installation's state directory; its name is the installation key.
struct UpdateLayout {
  Path state;
  Path workspace;
  Path stages;  // The source is this directory or below it.
  Path pending_marker;
  Path completed_marker;
  Path installed_manifest;
  Path launched_marker;
  Path archive;
  Path transaction;
};

// `state_root` is the directory that holds the state directories of all installations.
[[nodiscard]] UpdateLayout LayoutOf(const Path& state_root, std::u16string_view install_key,
                                    std::u16string_view update_id);

// The inventory of all files below a directory, in no particular order. Throws what reading them
// throws.
[[nodiscard]] SourceInventory InventoryOf(const Path& release);

}  // namespace tolvarine::updater::inspection
