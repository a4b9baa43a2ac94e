// The phase Rollback: the way back to the baseline.
//
// Rollback walks every entry, also those that were never applied: each step writes the baseline
// state whatever the current state is, so that it does not depend on how far the way forward got.
// Entries are walked in the plan's order, since each stands by itself. What is no entry stays:
// directories that were made, and temporaries of new files, are left to CleanupRolledBack
// (cleanup.h). The paths of the request must be canonical.

#pragma once

#include <string_view>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Decides to roll back: saves phase Rollback with its counter at 0 and `reason` as the record's
// error. Throws what the save throws; the record in memory then says so all the same.
void MarkRollback(const TransactionRequest& request, TransactionJournal& journal,
                  std::string_view reason);

// Restores every entry from the counter `rollback` on and ends by saving phase RolledBack. A file
// that had a baseline is put back from its verified copy and proved, one that the release brought
// is removed, and a deletion that found nothing needs nothing.
//
// Throws std::runtime_error, SystemError or FilesystemError, or what a hook throws. The walk ends
// there and skips no entry: the counter stands at the entry whose work is not done, or just behind
// one whose count could not be saved; a temporary may stay beside it. A failure of the last save
// finds the record in RolledBack. The next call goes on from the counter.
void RollbackToBaseline(const TransactionRequest& request, TransactionJournal& journal);

}  // namespace tolvarine::updater
