#include "engine/baseline_backup.h"

#include "engine/entry_temporary.h"
#include "engine/transaction_step.h"
#include "files/canonical_path.h"
#include "files/durable_copy.h"
#include "files/fingerprint.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {
namespace {

constexpr StepRule kBackupStep = {TransactionIntent::Backup, &TransactionJournal::backup,
                                  CrashPoint::BackupEntryStarted, CrashPoint::BackupEntryDone};

void BackUpEntry(const Path& target_root, const Path& backup_root, const JournalEntry& entry) {
  const Path target = SafeJoin(target_root, entry.path, "update target");
  // A file that has changed since the plan must not become the baseline.
  VerifyFileFingerprint(target, entry.baseline_size, entry.baseline_hash, "Original file");
  const Path backup = BackupOf(backup_root, entry);
  const Path temporary = SafeJoin(backup_root, TemporaryOf(entry), "backup temporary");
  CopyFileDurably(target, backup, temporary);
  VerifyFileFingerprint(backup, entry.baseline_size, entry.baseline_hash, "Baseline backup");
}

}  // namespace

Path BackupRoot(const TransactionRequest& request) {
  return SafeJoin(request.transaction, u"backup", "backup root");
}

Path BackupOf(const Path& backup_root, const JournalEntry& entry) {
  return SafeJoin(backup_root, entry.path, "baseline backup");
}

void BackupBaseline(const TransactionRequest& request, TransactionJournal& journal) {
  const Path backup_root = BackupRoot(request);
  ForEachPendingEntry(request, journal, kBackupStep, [&](const JournalEntry& entry, std::uint64_t) {
    if (entry.baseline_exists) BackUpEntry(request.target, backup_root, entry);
  });
  journal.phase = TransactionPhase::Apply;
  journal.apply = 0;
  journal.intent = TransactionIntent::None;
  journal.intent_entry = 0;
  SaveJournal(request.transaction, journal);
}

void VerifyBaselineBackups(const TransactionRequest& request, const TransactionJournal& journal) {
  const Path backup_root = BackupRoot(request);
  for (const JournalEntry& entry : journal.entries) {
    if (!entry.baseline_exists) continue;
    VerifyFileFingerprint(BackupOf(backup_root, entry), entry.baseline_size, entry.baseline_hash,
                          "Baseline backup");
  }
}

}  // namespace tolvarine::updater
