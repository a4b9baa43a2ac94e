#include "engine/transaction_run.h"

#include <stdexcept>
#include <utility>

#include "engine/apply.h"
#include "engine/baseline_backup.h"
#include "engine/cleanup.h"
#include "engine/release_verification.h"
#include "engine/rollback.h"
#include "engine/transaction_plan.h"
#include "files/canonical_path.h"
#include "files/file_operations.h"
#include "journal/journal_store.h"
#include "lists/release_path.h"

namespace tolvarine::updater {
namespace {

class TransactionRun {
 public:
  explicit TransactionRun(TransactionRequest request) : request_(std::move(request)) {}

  TransactionResult Execute(std::string* error);

 private:
  void Proceed();
  void ResolvePaths();
  void RefuseOverlap() const;
  void AdoptOrPlan();
  void Dispatch();

  JournalLoadResult Load();
  [[noreturn]] void RaiseCorrupt();
  void CancelBackup();
  void ResumeRolledBack();
  void RollBackAndCleanUp();
  void HandleFailure(const std::string& message);
  void ActOnFailure(const std::string& message);
  [[nodiscard]] TransactionResult Result() const;

  [[nodiscard]] bool RestoresBaseline() const {
    return request_.recovery_policy == RecoveryPolicy::RestoreBaseline;
  }

  TransactionRequest request_;  // With canonical paths, once they are resolved.
  TransactionJournal journal_;
};

Path CanonicalAbsolute(const Path& path, const char* refusal) {
  std::uint32_t code = 0;
  Path canonical = WeaklyCanonicalize(path, code);
  if (code != 0 || !IsAbsolutePath(canonical)) throw std::runtime_error(refusal);
  return canonical;
}

TransactionResult TransactionRun::Execute(std::string* error) {
  try {
    Proceed();
  } catch (const std::exception& failure) {
    const std::string message = failure.what();
    HandleFailure(message);
    if (error != nullptr) *error = journal_.error.empty() ? message : journal_.error;
  }
  return Result();
}

void TransactionRun::Proceed() {
  ResolvePaths();
  RefuseOverlap();
  AdoptOrPlan();
  if (!SamePathKey(request_.target, journal_.target)) {
    throw std::runtime_error("Transaction belongs to a different installation target");
  }
  Dispatch();
}

// The first load settles only whether the transaction directory has to be made, which must be there
// before its path can be resolved.
void TransactionRun::ResolvePaths() {
  request_.source = CanonicalAbsolute(request_.source, "Invalid source path");
  request_.target = CanonicalAbsolute(request_.target, "Invalid target path");
  if (Load().state == JournalLoadState::None) {
    const std::uint32_t code = CreateDirectories(request_.transaction);
    if (code != 0) throw FilesystemError("create_directories", code, request_.transaction);
  }
  request_.transaction = CanonicalAbsolute(request_.transaction, "Invalid transaction path");
}

void TransactionRun::RefuseOverlap() const {
  const Path& source = request_.source;
  const Path& target = request_.target;
  const Path& transaction = request_.transaction;
  const bool overlap = SamePathKey(source, target) ||                                   //
                       IsInsideRoot(source, target) || IsInsideRoot(target, source) ||  //
                       IsInsideRoot(transaction, source) || IsInsideRoot(source, transaction) ||
                       IsInsideRoot(transaction, target) || IsInsideRoot(target, transaction);
  if (overlap) {
    throw std::runtime_error("Update source, target, and transaction directories must not overlap");
  }
}

// The lists are proved against a loaded record before it is adopted, so that lists of another
// update leave it alone; everything that fails later is handled by its phase.
void TransactionRun::AdoptOrPlan() {
  const SourceInventory inventory = NormalizeSourceInventory(request_.inventory);
  const ManagedDeletionList deletions =
      NormalizeManagedDeletionList(request_.managed_deletions, inventory);
  JournalLoadResult loaded = Load();
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

// The phase is read again after each action, so that a fresh transaction goes from Backup to
// Committed in one pass.
void TransactionRun::Dispatch() {
  if (journal_.phase == TransactionPhase::Rollback) return RollBackAndCleanUp();
  if (journal_.phase == TransactionPhase::Backup) {
    if (RestoresBaseline()) return CancelBackup();
    BackupBaseline(request_, journal_);
  } else if (journal_.phase == TransactionPhase::RolledBack) {
    if (RestoresBaseline()) return;
    ResumeRolledBack();
  }
  if (journal_.phase != TransactionPhase::Apply) return;
  if (RestoresBaseline()) {
    MarkRollback(request_, journal_, "Recovery policy requested baseline restoration");
    RollBackAndCleanUp();
  } else {
    ApplyRelease(request_, journal_);
  }
}

JournalLoadResult TransactionRun::Load() {
  try {
    JournalLoadResult loaded = LoadJournal(request_.transaction);
    if (loaded.state != JournalLoadState::Corrupt) return loaded;
  } catch (const std::exception& failure) {
    journal_.phase = TransactionPhase::Corrupt;
    journal_.error = failure.what();
    throw;
  }
  RaiseCorrupt();
}

void TransactionRun::RaiseCorrupt() {
  journal_.phase = TransactionPhase::Corrupt;
  journal_.error = kJournalCorruptText;
  throw std::runtime_error(kJournalCorruptText);
}

void TransactionRun::CancelBackup() {
  journal_.phase = TransactionPhase::RolledBack;
  journal_.error = "Installation cancelled before target mutation";
  SaveJournal(request_.transaction, journal_);
  CleanupRolledBack(request_, nullptr);
}

void TransactionRun::ResumeRolledBack() {
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

void TransactionRun::HandleFailure(const std::string& message) {
  try {
    ActOnFailure(message);
  } catch (const std::exception& failure) {
    journal_.error = message + "; rollback incomplete: " + failure.what();
    try {
      SaveJournal(request_.transaction, journal_);
    } catch (...) {
      // The record could not be saved; the last one that was decides the next run.
    }
  }
}

// Goes by the phase in memory, which may be one save ahead of the disk.
void TransactionRun::ActOnFailure(const std::string& message) {
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

TransactionResult RunTransaction(const TransactionRequest& request, std::string* error) {
  if (error != nullptr) error->clear();
  return TransactionRun(request).Execute(error);
}

}  // namespace tolvarine::updater
