#include "engine/transaction_run.h"

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

#include "engine/apply.h"
#include "engine/baseline_backup.h"
#include "engine/cleanup.h"
#include "engine/release_verification.h"
#include "engine/rollback.h"
#include "engine/transaction_plan.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "journal/journal_store.h"
#include "lists/release_path.h"

namespace tolvarine::updater {
namespace {

class TransactionRun {
 public:
  explicit TransactionRun(TransactionRequest request) : request_(std::move(request)) {}

  TransactionResult Execute(std::string* error_out);

 private:
  void Proceed();
  void ResolvePaths();
  void RefuseOverlap() const;
  void AdoptOrPlan();
  void CarryForward();
  void ReturnToBaseline();

  JournalLoadResult GuardedLoad();
  void CancelBackup();
  void ReopenRolledBack();
  void RollBackAndCleanUp();
  void HandleFailure(const std::string& message);
  void ActByPhase(const std::string& message);
  [[nodiscard]] TransactionResult Result() const;

  TransactionRequest request_;  // Its paths are canonical after ResolvePaths.
  TransactionJournal journal_;
};

Path CanonicalAbsolute(const Path& path, const char* refusal) {
  std::uint32_t code = 0;
  Path canonical = WeaklyCanonicalize(path, code);
  if (code != 0 || !IsAbsolutePath(canonical)) throw std::runtime_error(refusal);
  return canonical;
}

TransactionResult TransactionRun::Execute(std::string* error_out) {
  try {
    Proceed();
    return Result();
  } catch (const std::exception& failure) {
    const std::string message = failure.what();
    HandleFailure(message);
    if (error_out != nullptr) *error_out = journal_.error.empty() ? message : journal_.error;
    return Result();
  }
}

void TransactionRun::Proceed() {
  ResolvePaths();
  RefuseOverlap();
  AdoptOrPlan();
  if (!SamePathKey(request_.target, journal_.target)) {
    throw std::runtime_error("Transaction belongs to a different installation target");
  }
  if (request_.recovery_policy == RecoveryPolicy::RestoreBaseline) {
    ReturnToBaseline();
  } else {
    CarryForward();
  }
}

// The transaction directory must exist before its path can be resolved. The load determines whether
// it has to be made and whether it can be read; its record is dropped, and AdoptOrPlan loads it
// again from the resolved path.
void TransactionRun::ResolvePaths() {
  request_.source = CanonicalAbsolute(request_.source, "Invalid source path");
  request_.target = CanonicalAbsolute(request_.target, "Invalid target path");
  if (GuardedLoad().state == JournalLoadState::None) {
    const std::uint32_t code = CreateDirectories(request_.transaction);
    if (code != 0) throw FilesystemError("create_directories", code, request_.transaction);
  }
  request_.transaction = CanonicalAbsolute(request_.transaction, "Invalid transaction path");
}

void TransactionRun::RefuseOverlap() const {
  const auto nested = [](const Path& a, const Path& b) {
    return IsInsideRoot(a, b) || IsInsideRoot(b, a);
  };
  if (SamePathKey(request_.source, request_.target) || nested(request_.source, request_.target) ||
      nested(request_.transaction, request_.source) ||
      nested(request_.transaction, request_.target)) {
    throw std::runtime_error("Update source, target, and transaction directories must not overlap");
  }
}

// The lists are verified before the loaded record is adopted: lists of another update must not
// change the transaction. A failure after the adoption is handled by the record's phase.
void TransactionRun::AdoptOrPlan() {
  const SourceInventory inventory = NormalizeSourceInventory(request_.inventory);
  const ManagedDeletionList deletions =
      NormalizeManagedDeletionList(request_.managed_deletions, inventory);
  JournalLoadResult loaded = GuardedLoad();
  if (loaded.journal) {
    VerifyListsAgainstJournal(inventory, deletions, *loaded.journal);
    journal_ = *std::move(loaded.journal);
    VerifyReleaseTree(request_.source, inventory);
  } else {
    VerifyReleaseTree(request_.source, inventory);
    journal_ = PlanTransaction(request_.source, request_.target, inventory, deletions);
    SaveJournal(request_.transaction, journal_);
  }
}

// The changes of phase for ResumeForward, from each phase that a run can find.
void TransactionRun::CarryForward() {
  switch (journal_.phase) {
    case TransactionPhase::Backup:
      BackupBaseline(request_, journal_);  // To Apply.
      return ApplyRelease(request_, journal_);
    case TransactionPhase::Apply:
      return ApplyRelease(request_, journal_);  // To Committed.
    case TransactionPhase::Rollback:
      return RollBackAndCleanUp();  // To RolledBack: a rollback is always completed first.
    case TransactionPhase::RolledBack:
      ReopenRolledBack();  // To Apply.
      return ApplyRelease(request_, journal_);
    case TransactionPhase::Committed:
    case TransactionPhase::None:
    case TransactionPhase::Corrupt:
      return;
  }
}

// The changes of phase for RestoreBaseline.
void TransactionRun::ReturnToBaseline() {
  switch (journal_.phase) {
    case TransactionPhase::Backup:
      return CancelBackup();  // To RolledBack.
    case TransactionPhase::Apply:
      MarkRollback(request_, journal_, "Recovery policy requested baseline restoration");
      return RollBackAndCleanUp();
    case TransactionPhase::Rollback:
      return RollBackAndCleanUp();
    case TransactionPhase::RolledBack:
    case TransactionPhase::Committed:
    case TransactionPhase::None:
    case TransactionPhase::Corrupt:
      return;
  }
}

// Sets the run's record to Corrupt if the journal cannot be loaded: the failure handler then
// changes nothing.
JournalLoadResult TransactionRun::GuardedLoad() {
  try {
    JournalLoadResult loaded = LoadJournal(request_.transaction);
    if (loaded.state == JournalLoadState::Corrupt) throw std::runtime_error(kJournalCorruptText);
    return loaded;
  } catch (const std::exception& failure) {
    journal_.phase = TransactionPhase::Corrupt;
    journal_.error = failure.what();
    throw;
  }
}

void TransactionRun::CancelBackup() {
  journal_.phase = TransactionPhase::RolledBack;
  journal_.error = "Installation cancelled before target mutation";
  SaveJournal(request_.transaction, journal_);
  CleanupRolledBack(request_, nullptr);
}

void TransactionRun::ReopenRolledBack() {
  VerifyBaselineBackups(request_, journal_);
  journal_.phase = TransactionPhase::Apply;
  journal_.apply = 0;
  journal_.rollback = 0;
  journal_.error.clear();
  SaveJournal(request_.transaction, journal_);
}

void TransactionRun::RollBackAndCleanUp() {
  RollbackToBaseline(request_, journal_);
  CleanupRolledBack(request_, nullptr);
}

// Handles a failure of the run by its phase. If that fails too, the record's error holds both
// texts.
void TransactionRun::HandleFailure(const std::string& message) {
  try {
    ActByPhase(message);
  } catch (const std::exception& failure) {
    journal_.error = message + "; rollback incomplete: " + failure.what();
    try {
      SaveJournal(request_.transaction, journal_);
    } catch (...) {
      // The last record that was saved decides how the next run continues.
    }
  }
}

// Uses the phase in memory, which is one save ahead of the disk if the save of a new phase failed.
void TransactionRun::ActByPhase(const std::string& message) {
  switch (journal_.phase) {
    case TransactionPhase::Apply:
      MarkRollback(request_, journal_, message);
      return RollBackAndCleanUp();
    case TransactionPhase::Rollback:
      return RollBackAndCleanUp();
    case TransactionPhase::Backup:
      journal_.error = message;
      journal_.intent = TransactionIntent::None;
      return SaveJournal(request_.transaction, journal_);
    case TransactionPhase::None:
    case TransactionPhase::Committed:
    case TransactionPhase::RolledBack:
    case TransactionPhase::Corrupt:
      return;
  }
}

TransactionResult TransactionRun::Result() const {
  return {.status = journal_.phase,
          .entry_count = journal_.entries.size(),
          .backup = journal_.backup,
          .apply = journal_.apply,
          .rollback = journal_.rollback,
          .error = journal_.error};
}

}  // namespace

TransactionResult RunTransaction(const TransactionRequest& request, std::string* error_out) {
  if (error_out != nullptr) error_out->clear();
  return TransactionRun(request).Execute(error_out);
}

}  // namespace tolvarine::updater
