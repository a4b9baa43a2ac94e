// The baseline: a verified, durable copy of every target file that a transaction will replace or
// delete. The copies are in the directory "backup" of the transaction directory, under the same
// relative paths as in the target. The rollback restores from them.

#pragma once

#include "engine/transaction.h"

namespace tolvarine::updater {

// The path of the backup tree. Links in it are not resolved: if the directory is a link to another
// place in the transaction directory, or differs in its spelling, SafeJoin refuses every path below
// it; if it leads out of the transaction directory, SafeJoin refuses it here. Throws what SafeJoin
// throws.
[[nodiscard]] Path BackupRoot(const TransactionRequest& request);

// The path of an entry's copy in that tree. Throws what SafeJoin throws.
[[nodiscard]] Path BackupOf(const Path& backup_root, const JournalEntry& entry);

// The phase Backup: copies and verifies, from the counter `backup` on, the target file of every
// entry that has a baseline, and saves phase Apply. Only reads the target. Throws what SafeJoin,
// VerifyFileFingerprint, CopyFileDurably, SaveJournal and a hook throw; the record is then still in
// Backup and its counter is the number of finished entries. The exception is a failure of the last
// save, which leaves the record in Apply and so causes a rollback.
void BackupBaseline(const TransactionRequest& request, TransactionJournal& journal);

// Verifies size and fingerprint of every baseline copy, independently of the counters. Throws what
// SafeJoin and VerifyFileFingerprint throw, at the first copy that is missing or differs.
void VerifyBaselineBackups(const TransactionRequest& request, const TransactionJournal& journal);

}  // namespace tolvarine::updater
