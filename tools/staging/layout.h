// The paths of one update and the updater's command line.
//
// The layout is the one that the updater's request validation accepts
// (driver/request_validation.h).

#pragma once

#include <string>
#include <string_view>

#include "driver/command_line.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::staging {

// The paths of one update of one installation. `state` is the installation's state directory; its
// name is the installation key.
struct UpdateLayout {
  Path state;
  Path workspace;
  Path
      stages;  // The authenticated stages of this update; the source is this directory or below it.
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

// Returns the inventory of the release below a directory, in no particular order. Locks each file
// as the updater does while it is hashed. Throws what the updater's own functions throw.
[[nodiscard]] SourceInventory InventoryOf(const Path& release);

// Quotes one argument so that CommandLineToArgvW returns it unchanged. It must not contain U+0000.
[[nodiscard]] std::u16string QuoteArgument(std::u16string_view argument);

// Returns the updater's command line: its own path, then the options. Leaves out the deletions if
// there are none, and the creation time if there is no process.
[[nodiscard]] std::u16string CommandLineOf(const Path& updater, const UpdaterArguments& arguments);

}  // namespace tolvarine::updater::staging
