// Table of contents of the updater: the records that several modules share, and the main operations
// that the main sequence and the transaction run call. Each is declared in the lowest layer that
// needs it.
//
//     driver   main_sequence.h          RunUpdater, the exit codes
//              command_line.h           ParseArguments, UpdaterArguments
//              request_validation.h     ValidateRequest
//              failure_message.h        FailureMessage
//              marker_copy.h            CopyMarkerDurably
//              update_log.h             WriteUpdateLog, UpdateLogPath
//              installation_lock.h      InstallationLock, LockAcquireResult
//              application_exit_wait.h  WaitForApplicationExit, IsProcessWaitSafe,
//                                       ProcessWaitResult
//     engine   transaction_run.h        RunTransaction, and the state machine of a transaction
//              transaction.h            TransactionRequest, TransactionResult, RecoveryPolicy,
//                                       TransactionHook, CrashPoint, SimulatedCrash
//              release_verification.h   VerifyReleaseTree, VerifyListsAgainstJournal
//              transaction_plan.h       PlanTransaction
//              baseline_backup.h        BackupBaseline, VerifyBaselineBackups
//              apply.h                  ApplyRelease
//              rollback.h               MarkRollback, RollbackToBaseline
//              cleanup.h                CleanupRolledBack
//              finalization.h           FinalizeUpdateMarkers, TransactionFinalizeRequest
//     journal  journal_record.h         TransactionJournal, TransactionPhase
//     lists    source_inventory.h       SourceInventory, SourceInventoryEntry,
//                                       ParseSourceInventory
//              managed_deletion_list.h  ManagedDeletionList, ParseManagedDeletionList
//     files    file_operations.h        RemoveEntry and the other operations by path
//     text     path_algebra.h           IsAbsolutePath, JoinPath

#pragma once

#include "driver/application_exit_wait.h"
#include "driver/command_line.h"
#include "driver/failure_message.h"
#include "driver/installation_lock.h"
#include "driver/main_sequence.h"
#include "driver/marker_copy.h"
#include "driver/request_validation.h"
#include "driver/update_log.h"
#include "engine/apply.h"
#include "engine/baseline_backup.h"
#include "engine/cleanup.h"
#include "engine/finalization.h"
#include "engine/release_verification.h"
#include "engine/rollback.h"
#include "engine/transaction.h"
#include "engine/transaction_plan.h"
#include "engine/transaction_run.h"
#include "files/file_operations.h"
#include "journal/journal_record.h"
#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "text/path_algebra.h"
