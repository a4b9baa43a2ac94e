// What goes into a transaction run and what comes out of it, and the points at which a caller of
// the engine can watch a run or end it as a crash would.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// What to do with a transaction, be it found in the journal or just planned. Any value but
// RestoreBaseline acts as ResumeForward.
enum class RecoveryPolicy : std::int32_t {
  ResumeForward = 0,  // Carry it forward to Committed.
  // Cancel it in Backup, roll it back in Apply, leave it in RolledBack. A rollback under way and a
  // commit are as they would be otherwise.
  RestoreBaseline = 1,
};

// Where a hook is called. Its index is that of the entry, or the number of entries for
// ApplyFinished. "Started": the announcement is durable, no file work has been done. "Done": the
// file work is done, its count is not saved.
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

// Stands for the death of the process at a chosen point. Thrown by hooks alone. It is not of the
// standard hierarchy, so that nothing takes it for a failure: it leaves the run and the
// finalization, and the disk stays as a crash would leave it.
struct SimulatedCrash final {};

struct TransactionRequest {
  Path source;                // The release directory: the staged, authenticated files.
  Path target;                // The installation directory.
  Path transaction;           // The journal slots and the backup tree.
  SourceInventory inventory;  // As the driver holds it; the run normalizes it itself.
  RecoveryPolicy recovery_policy = RecoveryPolicy::ResumeForward;
  TransactionHook crash_hook;             // May be empty.
  ManagedDeletionList managed_deletions;  // As the driver holds it, like the inventory.
};

struct TransactionResult {
  // The phase of the record in memory when the run ended. A failed last save leaves it one phase
  // ahead of the disk. What each tells the caller:
  //   None        the run failed before a record was adopted; the target is untouched
  //   Backup      the backup failed; the target is untouched; a later run resumes
  //   Apply       never returned
  //   Rollback    the rollback is incomplete; a later run resumes it
  //   Committed   every entry is applied; finalization proves that it is durable
  //   RolledBack  the baseline stands: the update failed, or was cancelled before it touched the target
  //   Corrupt     the journal could not be read; nothing was attempted
  TransactionPhase status = TransactionPhase::None;

  // From the record: the number of its entries, its counters, its failure's text.
  std::uint64_t entry_count = 0;
  std::uint64_t backup = 0;
  std::uint64_t apply = 0;
  std::uint64_t rollback = 0;
  std::string error;
};

}  // namespace tolvarine::updater
