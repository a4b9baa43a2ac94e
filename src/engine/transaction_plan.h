// The plan: which files a transaction will touch, in which order, and what the target holds there
// before. The later phases only process the entries of the plan.
//
// The entries are in the order of the normalized deletion list, followed by the order of the
// normalized inventory. Backup, apply and rollback use this order. The application's executable is
// the last file of the inventory, so the file that starts the installation is replaced last.

#pragma once

#include <cstdint>

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Returns the first record of a transaction, in phase Backup and not yet saved. `target` must be
// canonical and the lists normalized; `source` is not used, since sizes and digests of the release
// come from the inventory. Queries the target and reads every existing file of an entry in full;
// writes nothing. Throws std::runtime_error for an entry or a parent of the wrong kind, a path that
// SafeJoin refuses, a file that cannot be read, and a plan without entries or without the
// application; throws SystemError for a query that fails otherwise.
[[nodiscard]] TransactionJournal PlanTransaction(const Path& source, const Path& target,
                                                 const SourceInventory& inventory,
                                                 const ManagedDeletionList& deletions);

// Fills the baseline fields of one entry (size in bytes) from the target. `error_code` receives the
// code of a failing query, otherwise 0. If the query of the entry fails, the fields are unchanged;
// if only that of its size fails, `baseline_size` is all ones. Throws std::runtime_error if the
// target holds something other than a regular file there, and what SafeJoin and Fnv1aOfFile throw.
void ProbeTargetEntry(const Path& target, JournalEntry& entry, std::uint32_t& error_code);

// Appends every missing parent of `entry_path` to the record's directories, the deepest first.
// `error_code` receives the code of a failing query, otherwise 0; a path without parents leaves it
// unchanged. Directories that were appended before a failure stay. Throws std::runtime_error for a
// parent that is not a plain directory, and what SafeJoin throws.
void CollectMissingParents(const Path& target, const Path& entry_path, TransactionJournal& journal,
                           std::uint32_t& error_code);

// The strict order of directories: deeper ones first, so that children are removed before their
// parents; at equal depth by the bytes of their UTF-8 text, which is case-sensitive. Throws
// SystemError for a lone surrogate.
[[nodiscard]] bool DirectoryBefore(const JournalDirectory& a, const JournalDirectory& b);

// True for the entry that installs the application's executable. Only the top level counts; upper
// and lower case are equal.
[[nodiscard]] bool IsApplicationEntry(const JournalEntry& entry);

}  // namespace tolvarine::updater
