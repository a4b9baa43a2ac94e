// The sizes of the updater's list texts, for lists that may be too long to be serialized.

#pragma once

#include <cstddef>

#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"

namespace tolvarine::updater::application {

// The bytes that SerializeSourceInventory and SerializeManagedDeletionList write, their limits left
// aside. Throw SystemError for a lone surrogate.
[[nodiscard]] std::size_t ListSizeOf(const SourceInventory& rows);
[[nodiscard]] std::size_t ListSizeOf(const ManagedDeletionList& paths);

}  // namespace tolvarine::updater::application
