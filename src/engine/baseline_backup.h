// The baseline: a verified, durable copy of every target file that a transaction will touch, in the
// tree "backup" of the transaction directory, which mirrors the target's relative layout. It is
// what makes rollback possible.

#pragma once

#include "engine/transaction.h"

namespace tolvarine::updater {

// The path of the backup tree, unresolved: where that directory is a link to elsewhere in the
// transaction directory, or is spelt otherwise, every path below it is an escape; a link out of the
// transaction directory is one itself. Throws as SafeJoin does.
[[nodiscard]] Path BackupRoot(const TransactionRequest& request);

// The path of an entry's copy in that tree. Throws as SafeJoin does.
[[nodiscard]] Path BackupOf(const Path& backup_root, const JournalEntry& entry);

// The phase Backup: carries every entry from the counter `backup` on, copying and proving those
// that have a baseline, and ends by saving phase Apply. The target is only read. Throws what
// SafeJoin, VerifyFileFingerprint, CopyFileDurably, SaveJournal and a hook throw; the record is
// then still in Backup and counts what is done. Only a failure of the last save finds it in Apply,
// and so leads to a rollback.
void BackupBaseline(const TransactionRequest& request, TransactionJournal& journal);

// Returns when every baseline copy, whatever the counters say, is there and is what was recorded.
// Throws what SafeJoin and VerifyFileFingerprint throw, at the first that is not.
void VerifyBaselineBackups(const TransactionRequest& request, const TransactionJournal& journal);

}  // namespace tolvarine::updater
