#include "engine/apply.h"

#include <cstdint>

#include "engine/baseline_backup.h"
#include "engine/entry_temporary.h"
#include "engine/transaction_step.h"
#include "files/canonical_path.h"
#include "files/durable_copy.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "journal/journal_store.h"

namespace tolvarine::updater {
namespace {

constexpr StepRule kApplyStep = {TransactionIntent::Apply, &TransactionJournal::apply,
                                 CrashPoint::ApplyEntryStarted, CrashPoint::ApplyEntryDone};

void InstallEntry(const TransactionRequest& request, const JournalEntry& entry, std::uint64_t index,
                  const Path& target) {
  const Path source = SafeJoin(request.source, entry.path, "release source");
  const Path temporary = SafeJoin(request.target, TemporaryOf(entry), "target temporary");
  // One handle for the hash and the copy, held until the rename: nobody can change the file
  // between.
  const LockedReleaseFile file(source);
  if (!MatchesRelease(file, entry.size, entry.sha256)) {
    ThrowAboutPath("Release file failed authenticated verification: ", source);
  }
  CallHook(request, CrashPoint::ApplySourceVerified, index);
  CopyLockedFileToTemporary(file, temporary);
  ReplaceFileDurably(temporary, target);
}

void DeleteEntry(const Path& target) {
  const RemovalResult removal = RemoveEntry(target);
  if (removal.error != 0) throw SystemError(removal.error);
}

}  // namespace

void ApplyRelease(const TransactionRequest& request, TransactionJournal& journal) {
  VerifyBaselineBackups(request, journal);
  ForEachPendingEntry(request, journal, kApplyStep,
                      [&](const JournalEntry& entry, std::uint64_t index) {
                        const Path target = SafeJoin(request.target, entry.path, "update target");
                        if (entry.kind == JournalEntryKind::Delete) {
                          DeleteEntry(target);
                        } else {
                          InstallEntry(request, entry, index, target);
                        }
                      });
  journal.phase = TransactionPhase::Committed;
  journal.intent = TransactionIntent::None;
  SaveJournal(request.transaction, journal);
  CallHook(request, CrashPoint::ApplyFinished, journal.entries.size());
}

}  // namespace tolvarine::updater
