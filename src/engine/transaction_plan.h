// The plan: what a transaction will touch, in what order, and what stood there before. Every later
// phase only walks what is decided here.
//
// The order of the entries, and with it of backup, apply and rollback, is that of the normalized
// deletion list followed by that of the normalized inventory, whose last file is the application's
// executable: what makes the installation start is replaced last.

#pragma once

#include <cstdint>

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// The first record of a transaction, in phase Backup and not yet saved. `target` is canonical, the
// lists are normalized; `source` is not used, since sizes and digests of the release come from the
// inventory. Queries the target and reads each file in full that stands where an entry does; writes
// nothing. Throws std::runtime_error for an entry or a parent of the wrong kind, a path that
// SafeJoin refuses, a file that cannot be read, and a plan without entries or without the
// application; throws SystemError for a query that fails otherwise.
[[nodiscard]] TransactionJournal PlanTransaction(const Path& source, const Path& target,
                                                 const SourceInventory& inventory,
                                                 const ManagedDeletionList& deletions);

// Fills the baseline fields of one entry (size in bytes) from what stands in the target. A failing
// query is left in `error_code`, which is 0 otherwise: the fields are then as they were, or, where
// only the size could not be had, `baseline_size` is all ones. Throws std::runtime_error for
// anything but a regular file or nothing, and what SafeJoin and Fnv1aOfFile throw.
void ProbeTargetEntry(const Path& target, JournalEntry& entry, std::uint32_t& error_code);

// Appends every missing parent of `entry_path` to the record's directories, from below. A failing
// query is left in `error_code`, which a path without parents leaves alone; what was appended
// before stays. Throws std::runtime_error for a parent that is no plain directory, and what
// SafeJoin throws.
void CollectMissingParents(const Path& target, const Path& entry_path, TransactionJournal& journal,
                           std::uint32_t& error_code);

// The strict order of directories: children before their parents, so that each is empty when its
// turn to be removed comes; at equal depth, by the bytes of their UTF-8 text. Throws SystemError
// for a lone surrogate.
[[nodiscard]] bool DirectoryBefore(const JournalDirectory& a, const JournalDirectory& b);

// True for the entry that installs the application's executable: at the top level only, in any
// case.
[[nodiscard]] bool IsApplicationEntry(const JournalEntry& entry);

}  // namespace tolvarine::updater
