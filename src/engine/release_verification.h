// Proof, before a run touches the target, that the staged release is exactly what was
// authenticated, and that a journal was planned from the lists at hand. Nothing here changes the
// disk.
//
// The tree is not locked as a whole: the walk sees a moment of it, and each file is then locked on
// its own. A file that changes later is caught when it is installed, under a new lock.

#pragma once

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Returns when the tree below the canonical `source_root`, which is no reparse point itself, holds
// the files of the normalized inventory under these very spellings and with these sizes and
// digests, no file more, and no link or other reparse point anywhere. Directories need not be
// listed, but their names must be safe. Throws std::runtime_error for any other tree, SystemError
// where it cannot be read, and what VerifyReleaseContents throws.
void VerifyReleaseTree(const Path& source_root, const SourceInventory& inventory);

// The part of that which reads the files: each, in the inventory's order and under a lock of its
// own, has its size and digest. Throws std::runtime_error otherwise, and what SafeJoin and
// LockedReleaseFile throw.
void VerifyReleaseContents(const Path& source_root, const SourceInventory& inventory);

// Returns when the journal's Install entries are the rows of the normalized inventory and its
// Delete entries those of the normalized deletion list, each kind in the order of its list. Throws
// std::runtime_error otherwise.
void VerifyListsAgainstJournal(const SourceInventory& inventory,
                               const ManagedDeletionList& deletions,
                               const TransactionJournal& journal);

}  // namespace tolvarine::updater
