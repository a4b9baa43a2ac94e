#include "engine/cleanup.h"

#include <exception>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "engine/entry_temporary.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "journal/journal_store.h"
#include "platform/error_codes.h"
#include "text/error_text.h"

namespace tolvarine::updater {
namespace {

// The durable record, if it stands in `phase`. Throws `otherwise` for any other.
TransactionJournal LoadInPhase(const Path& transaction, TransactionPhase phase,
                               const char* otherwise) {
  JournalLoadResult loaded = LoadJournal(transaction);
  if (loaded.state == JournalLoadState::Corrupt) throw std::runtime_error(kJournalCorruptText);
  if (!loaded.journal || loaded.journal->phase != phase) throw std::runtime_error(otherwise);
  return *std::move(loaded.journal);
}

void RemoveLeftovers(const Path& target, const TransactionJournal& journal) {
  for (const JournalEntry& entry : journal.entries) {
    RemoveEntry(SafeJoin(target, TemporaryOf(entry), "target temporary"));
  }
  for (const JournalDirectory& directory : journal.directories) {
    RemoveEntry(SafeJoin(target, directory.path, "update target directory"));
  }
}

// Returns why the directory still stands, 0 when it is gone.
std::uint32_t RemoveTransactionDirectory(const Path& transaction, const Path& newest_slot = {}) {
  const std::uint32_t code = RemoveEntry(transaction).error;
  if (code != platform::kErrorDirNotEmpty) return code;
  return RemoveTree(transaction, newest_slot).error;
}

// Returns the slot that says Committed. Nothing behind the move can fail.
Path MoveMarker(const TransactionFinalizeRequest& request) {
  const TransactionJournal journal = LoadInPhase(request.transaction, TransactionPhase::Committed,
                                                 "Update payload is not durably installed");
  if (!IsRegularFile(request.pending_marker)) {
    throw std::runtime_error("Pending update marker is missing");
  }
  const Path parent = ParentPath(request.completed_marker);
  const std::uint32_t code = CreateDirectories(parent);
  if (code != 0) throw FilesystemError("create_directories", code, parent);
  Path committed_slot = JournalSlot(request.transaction, journal.generation);
  if (request.before_marker_move) request.before_marker_move();
  ReplaceFileDurably(request.pending_marker, request.completed_marker);
  return committed_slot;
}

// The slot that says Committed goes last: cut short before, the removal would leave an older slot
// that leads the next run back to a backup which is gone. Whatever becomes of the removal, the marker
// has been moved.
void RemoveFinalized(const TransactionFinalizeRequest& request, const Path& committed_slot,
                     std::string* error_out) {
  constexpr std::string_view kDeferred =
      "Update marker finalized; transaction cleanup is deferred: ";
  try {
    const std::uint32_t code = RemoveTransactionDirectory(request.transaction, committed_slot);
    if (code == 0 || error_out == nullptr) return;
    StoreErrorText(error_out, std::string(kDeferred) + SystemMessage(code));
  } catch (const std::exception& failure) {
    StoreErrorText(error_out, failure.what());
  }
}

}  // namespace

bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out) {
  try {
    StoreErrorText(error_out, {});
    RemoveLeftovers(request.target, LoadInPhase(request.transaction, TransactionPhase::RolledBack,
                                                "Cleanup requires a completed rollback"));
    return true;
  } catch (const std::exception& failure) {
    StoreErrorText(error_out, failure.what());
    return false;
  }
}

std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                    std::string* error_out) {
  try {
    StoreErrorText(error_out, {});
    if (IsRegularFile(request.completed_marker)) {
      RemoveTransactionDirectory(request.transaction);
      return kAlreadyFinal;
    }
    const Path committed_slot = MoveMarker(request);
    RemoveFinalized(request, committed_slot, error_out);
    return kMarkerMoved;
  } catch (const std::exception& failure) {
    StoreErrorText(error_out, failure.what());
    return kFinalizeFailed;
  }
}

}  // namespace tolvarine::updater
