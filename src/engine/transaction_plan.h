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

namespace tolvarine::updater {

// The first record of a transaction, in phase Backup and not yet saved. `target` is canonical, the
// lists are normalized. Reads the target and the hash of each file that stands where an entry does;
// writes nothing. Raises std::runtime_error or SystemError for a target or lists that cannot be
// updated.
[[nodiscard]] TransactionJournal PlanTransaction(const Path& source, const Path& target,
                                                 const SourceInventory& inventory,
                                                 const ManagedDeletionList& deletions);

// Fills the baseline fields of one entry from what stands in the target. A failing query is left in
// `error_code`, which is 0 otherwise; anything but a regular file or nothing raises.
void ProbeTargetEntry(const Path& target, JournalEntry& entry, std::uint32_t& error_code);

// Appends every missing parent of `entry_path` to the record's directories, from below. A failing
// query is left in `error_code`, as above; a parent that is no plain directory raises.
void CollectMissingParents(const Path& target, const Path& entry_path, TransactionJournal& journal,
                           std::uint32_t& error_code);

// The strict order of directories: children before their parents, so that each is empty when its
// turn to be removed comes.
[[nodiscard]] bool DirectoryBefore(const JournalDirectory& a, const JournalDirectory& b);

// True for the entry that installs the application's executable.
[[nodiscard]] bool IsApplicationEntry(const JournalEntry& entry);

}  // namespace tolvarine::updater
