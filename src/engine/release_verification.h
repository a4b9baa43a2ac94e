// Verifies, before a run touches the target, that the staged release is exactly what was
// authenticated, and that a journal was planned from the given lists. Nothing here changes the
// disk.
//
// The tree as a whole is not locked. The walk reads it once; then each file is locked, read and
// unlocked. A file that changes later is detected when it is installed, under a new lock.

#pragma once

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Verifies that the tree below the canonical `source_root` contains exactly the files of the
// normalized inventory, with the same spelling, size and digest, and no link or other reparse
// point; the root must not be one either. Directories are not listed in the inventory, but their
// names must be safe. Throws std::runtime_error if the tree differs, SystemError if it cannot be
// read, and what VerifyReleaseContents throws.
void VerifyReleaseTree(const Path& source_root, const SourceInventory& inventory);

// The part of VerifyReleaseTree that reads the files. Verifies the size and digest of each file, in
// the inventory's order, one lock at a time. Throws std::runtime_error if one differs, and what
// SafeJoin and LockedReleaseFile throw.
void VerifyReleaseContents(const Path& source_root, const SourceInventory& inventory);

// Verifies that the journal's Install entries equal the rows of the normalized inventory and its
// Delete entries those of the normalized deletion list, each kind in the order of its list. Throws
// std::runtime_error if they differ.
void VerifyListsAgainstJournal(const SourceInventory& inventory,
                               const ManagedDeletionList& deletions,
                               const TransactionJournal& journal);

}  // namespace tolvarine::updater
