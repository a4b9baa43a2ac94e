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

// Returns when the tree below the canonical `source_root` holds the files of the normalized
// inventory, under these very spellings and with these sizes and digests, no file more and no link
// or other reparse point anywhere. Directories are not compared. Raises otherwise.
void VerifyReleaseTree(const Path& source_root, const SourceInventory& inventory);

// The part of it that reads: each file, under its lock, has its size and digest. Raises otherwise.
void VerifyReleaseContents(const Path& source_root, const SourceInventory& inventory);

// Returns when the journal's entries are the rows of the two normalized lists, in their order.
// Raises std::runtime_error otherwise.
void VerifyListsAgainstJournal(const SourceInventory& inventory,
                               const ManagedDeletionList& deletions,
                               const TransactionJournal& journal);

}  // namespace tolvarine::updater
