// The request and the result of a transaction run, and the hook points at which a caller can
// observe a run or simulate a crash.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// How a run continues a transaction, whether the journal held it or the run has just planned it.
// Any value but RestoreBaseline acts as ResumeForward.
enum class RecoveryPolicy : std::int32_t {
  ResumeForward = 0,  // Continue it until it is in Committed.
  // Cancel it in Backup, roll it back in Apply, leave it in RolledBack. In Rollback and Committed
  // the policy makes no difference.
  RestoreBaseline = 1,
};

// The points at which the hook is called, with the index of the entry, or with the number of
// entries for ApplyFinished. "Started": the intent is durable, no file has been touched. "Done":
// the file work is done, the counter is not saved yet.
enum class CrashPoint : std::int32_t {
  BackupEntryStarted = 0,
  BackupEntryDone = 1,
  ApplyEntryStarted = 2,
  // Install only: the release file is locked and verified, nothing is written.
  ApplySourceVerified = 3,
  ApplyEntryDone = 4,
  RollbackEntryStarted = 5,
  RollbackEntryDone = 6,
  ApplyFinished = 7,  // Committed is durable.
};

using TransactionHook = std::function<void(CrashPoint, std::uint64_t)>;

// Simulates the death of the process at a chosen point. Only hooks throw it. It does not derive
// from std::exception, so that no handler treats it as a failure: it passes through the run and the
// finalization, and the disk stays as a crash would leave it.
struct SimulatedCrash final {};

struct TransactionRequest {
  Path source;                // The release directory: the staged, authenticated files.
  Path target;                // The installation directory.
  Path transaction;           // The journal slots and the backup tree.
  SourceInventory inventory;  // Need not be normalized; the run does that.
  RecoveryPolicy recovery_policy = RecoveryPolicy::ResumeForward;
  TransactionHook crash_hook;             // May be empty.
  ManagedDeletionList managed_deletions;  // Need not be normalized either.
};

struct TransactionResult {
  // The phase of the record in memory when the run ended. If the last save failed, it is one phase
  // ahead of the disk. The meaning of each:
  //   None        the run failed before it had a record; the target is untouched
  //   Backup      the backup failed; the target is untouched; a later run resumes
  //   Apply       never returned
  //   Rollback    the rollback is incomplete; a later run resumes it
  //   Committed   every entry is applied; finalization proves that it is durable
  //   RolledBack  the target holds the baseline: the update failed and was rolled back, or it was
  //               cancelled before it touched the target
  //   Corrupt     the journal could not be read; nothing was attempted
  TransactionPhase status = TransactionPhase::None;

  // Copies of the record's fields. `error` may hold the text of an earlier run, also in Committed:
  // a run that resumes a backup or a rollback does not clear it. A failure in None, Committed or
  // RolledBack is not recorded in it.
  std::uint64_t entry_count = 0;
  std::uint64_t backup = 0;
  std::uint64_t apply = 0;
  std::uint64_t rollback = 0;
  std::string error;
};

}  // namespace tolvarine::updater
