// Where everything of one update lies, and the command line that tells the updater so.
//
// The layout is the one that the updater proves before it touches anything (see
// driver/request_validation.h). What is laid out and quoted here is what it accepts.

#pragma once

#include <string>
#include <string_view>

#include "driver/command_line.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::staging {

// The paths of one update of one installation. `state` is the installation's state directory, whose
// name is the installation's key.
struct UpdateLayout {
  Path state;
  Path workspace;
  Path stages;  // The authenticated stages of this update; the source is at or below it.
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

// The inventory of the release below a directory, in no particular order. Each file is hashed under
// the lock that the updater takes. Throws what the updater would throw for it.
[[nodiscard]] SourceInventory InventoryOf(const Path& release);

// One argument as CommandLineToArgvW gives it back, whatever it holds but a zero unit.
[[nodiscard]] std::u16string QuoteArgument(std::u16string_view argument);

// The whole command line of an updater: its own path, then every option. Options whose value is
// empty where that means absence (deletions, the creation time) are left out.
[[nodiscard]] std::u16string CommandLineOf(const Path& updater, const UpdaterArguments& arguments);

}  // namespace tolvarine::updater::staging
