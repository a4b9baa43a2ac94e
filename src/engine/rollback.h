// The phase Rollback: the way back to the baseline.
//
// Rollback walks every entry, also those that were never applied: each step writes the baseline
// state whatever the current state is, so that it does not depend on how far the way forward got.

#pragma once

#include <string_view>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Decides to roll back: saves phase Rollback with its counter at 0 and `reason` as the record's
// error. Raises what the save raises.
void MarkRollback(const TransactionRequest& request, TransactionJournal& journal,
                  std::string_view reason);

// Restores every entry from the counter `rollback` on and ends by saving phase RolledBack. A file
// that had a baseline is put back from its verified copy and proved; one that the release brought
// is removed. On a failure raises, with the counter at the entry that failed: no entry is skipped.
void RollbackToBaseline(const TransactionRequest& request, TransactionJournal& journal);

}  // namespace tolvarine::updater
