#include "engine/rollback.h"

#include "engine/baseline_backup.h"
#include "engine/entry_temporary.h"
#include "engine/transaction_step.h"
#include "files/canonical_path.h"
#include "files/durable_copy.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/fingerprint.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {
namespace {

constexpr StepRule kRollbackStep = {TransactionIntent::Rollback, &TransactionJournal::rollback,
                                    CrashPoint::RollbackEntryStarted,
                                    CrashPoint::RollbackEntryDone};

void RestoreFromBackup(const Path& target_root, const Path& backup_root, const JournalEntry& entry,
                       const Path& target) {
  const Path backup = BackupOf(backup_root, entry);
  // A damaged copy must not overwrite the target.
  VerifyFileFingerprint(backup, entry.baseline_size, entry.baseline_hash, "Baseline backup");
  const Path temporary = SafeJoin(target_root, TemporaryOf(entry), "target temporary");
  CopyFileDurably(backup, target, temporary);
  VerifyFileFingerprint(target, entry.baseline_size, entry.baseline_hash, "Restored file");
}

void RestoreEntry(const Path& target_root, const Path& backup_root, const JournalEntry& entry) {
  // SafeJoin checks every entry's path, also that of an entry that needs no work.
  const Path target = SafeJoin(target_root, entry.path, "update target");
  if (entry.baseline_exists) {
    RestoreFromBackup(target_root, backup_root, entry, target);
  } else if (entry.kind == JournalEntryKind::Install) {
    const RemovalResult removal = RemoveEntry(target);
    if (removal.error != 0) throw SystemError(removal.error);
  }
}

}  // namespace

void MarkRollback(const TransactionRequest& request, TransactionJournal& journal,
                  std::string_view reason) {
  journal.phase = TransactionPhase::Rollback;
  journal.rollback = 0;
  journal.intent = TransactionIntent::None;
  journal.error = reason;
  SaveJournal(request.transaction, journal);
}

void RollbackToBaseline(const TransactionRequest& request, TransactionJournal& journal) {
  const Path backup_root = BackupRoot(request);
  ForEachPendingEntry(request, journal, kRollbackStep,
                      [&](const JournalEntry& entry, std::uint64_t) {
                        RestoreEntry(request.target, backup_root, entry);
                      });
  journal.phase = TransactionPhase::RolledBack;
  journal.intent = TransactionIntent::None;
  SaveJournal(request.transaction, journal);
}

}  // namespace tolvarine::updater
