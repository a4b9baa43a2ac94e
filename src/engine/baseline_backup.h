// The baseline: a verified, durable copy of every target file that a transaction will touch, in the
// tree "backup" of the transaction directory, which mirrors the target's relative layout. It is
// what makes rollback possible.

#pragma once

#include "engine/transaction.h"

namespace tolvarine::updater {

// The path of the backup tree below the transaction directory, which must be canonical. The backup
// root itself is not resolved: a link in its place makes every path below it an escape. Raises as
// SafeJoin does.
[[nodiscard]] Path BackupRoot(const TransactionRequest& request);

// The path of an entry's copy in that tree. Raises as SafeJoin does.
[[nodiscard]] Path BackupOf(const Path& backup_root, const JournalEntry& entry);

// The phase Backup: copies every entry from the counter `backup` on and ends by saving phase Apply.
// The target is only read. On a failure raises; the record stays in Backup and counts what is done.
void BackupBaseline(const TransactionRequest& request, TransactionJournal& journal);

// Returns when every baseline copy, whatever the counters say, is there and is what was recorded.
// Raises std::runtime_error at the first that is not.
void VerifyBaselineBackups(const TransactionRequest& request, const TransactionJournal& journal);

}  // namespace tolvarine::updater
