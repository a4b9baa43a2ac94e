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

// What to do with a transaction that is found in the journal. Any value but RestoreBaseline acts as
// ResumeForward.
enum class RecoveryPolicy : std::int32_t {
  ResumeForward = 0,    // Carry it forward to Committed.
  RestoreBaseline = 1,  // Cancel it in Backup, roll it back in Apply, leave it in RolledBack.
};

// Where a hook is called. Its index is that of the entry, or the number of entries for
// ApplyFinished.
enum class CrashPoint : std::int32_t {
  BackupEntryStarted = 0,  // The intent is durable; no file work has been done.
  BackupEntryDone = 1,     // The file work is done; the counter is not saved.
  ApplyEntryStarted = 2,   // The intent is durable; no file work has been done.
  ApplySourceVerified =
      3,               // Install only: the release file is locked and verified, no byte written.
  ApplyEntryDone = 4,  // The file work is done; the counter is not saved.
  RollbackEntryStarted = 5,  // The intent is durable; no file work has been done.
  RollbackEntryDone = 6,     // The file work is done; the counter is not saved.
  ApplyFinished = 7,         // Committed is durable.
};

using TransactionHook = std::function<void(CrashPoint, std::uint64_t)>;

// Stands for the death of the process at a chosen point. Thrown by hooks alone. It is not of the
// standard hierarchy, so that nothing takes it for a failure: it leaves the run and the
// finalization, and the disk stays as a crash would leave it.
struct SimulatedCrash {};

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
  // The phase of the record in memory when the run ended. What each tells the caller:
  //   None        the run failed before a record was adopted; the target is untouched
  //   Backup      the backup failed; the target is untouched; a later run resumes
  //   Rollback    the rollback is incomplete; a later run resumes it
  //   Committed   installed
  //   RolledBack  the update failed and the baseline stands
  //   Corrupt     the journal could not be read; nothing was attempted
  TransactionPhase status = TransactionPhase::None;
  std::uint64_t entry_count = 0;
  std::uint64_t backup = 0;
  std::uint64_t apply = 0;
  std::uint64_t rollback = 0;
  std::string error;  // The record's.
};

}  // namespace tolvarine::updater
