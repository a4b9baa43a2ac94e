// The phase Rollback: restores the baseline.
//
// The rollback restores every entry, also those that were never applied, whatever their current
// state is; so it does not depend on how many entries were applied. Entries are independent of each
// other, so the plan's order serves here too. Directories that were made and temporaries of new
// files are left to CleanupRolledBack (cleanup.h). The paths of the request must be canonical.

#pragma once

#include <string_view>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Saves phase Rollback with its counter at 0 and `reason` as the record's error. Throws what the
// save throws; the record in memory is changed even then.
void MarkRollback(const TransactionRequest& request, TransactionJournal& journal,
                  std::string_view reason);

// Restores every entry from the counter `rollback` on and saves phase RolledBack. A file with a
// baseline is copied back from its verified copy and verified again; a file that only the release
// has is removed; a deletion without a baseline needs no work.
//
// Throws std::runtime_error, SystemError or FilesystemError, or what a hook throws. It stops at the
// first failure and skips no entry: the counter is the index of the entry whose work failed, or one
// more if only the save of the counter failed. A temporary may stay beside that entry. After a
// failure of the last save the record in memory is in RolledBack. The next call continues from the
// counter.
void RollbackToBaseline(const TransactionRequest& request, TransactionJournal& journal);

}  // namespace tolvarine::updater
