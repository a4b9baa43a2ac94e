#include "engine/cleanup.h"

#include <stdexcept>

#include "engine/transaction_step.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "platform/error_codes.h"

namespace tolvarine::updater {
namespace {

void Tell(std::string* error_out, std::string text) {
  if (error_out != nullptr) *error_out = std::move(text);
}

// The durable record, if it stands in `phase`. Raises `otherwise` for any other.
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

// Returns the code of what is left standing, 0 when nothing is.
std::uint32_t RemoveTransactionDirectory(const Path& transaction) {
  const std::uint32_t code = RemoveEntry(transaction).error;
  return code == platform::kErrorDirNotEmpty ? RemoveTree(transaction).error : code;
}

void MoveMarker(const TransactionFinalizeRequest& request) {
  static_cast<void>(LoadInPhase(request.transaction, TransactionPhase::Committed,
                                "Update payload is not durably installed"));
  if (!IsRegularFile(request.pending_marker)) {
    throw std::runtime_error("Pending update marker is missing");
  }
  const Path parent = ParentPath(request.completed_marker);
  const std::uint32_t code = CreateDirectories(parent);
  if (code != 0) throw FilesystemError("create_directories", code, parent);
  if (request.before_marker_move) request.before_marker_move();
  ReplaceFileDurably(request.pending_marker, request.completed_marker);
}

}  // namespace

bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out) {
  try {
    Tell(error_out, {});
    RemoveLeftovers(request.target, LoadInPhase(request.transaction, TransactionPhase::RolledBack,
                                                "Cleanup requires a completed rollback"));
    return true;
  } catch (const std::exception& failure) {
    Tell(error_out, failure.what());
    return false;
  }
}

std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                    std::string* error_out) {
  try {
    Tell(error_out, {});
    if (IsRegularFile(request.completed_marker)) {
      RemoveTransactionDirectory(request.transaction);
      return kAlreadyFinal;
    }
    MoveMarker(request);
    const std::uint32_t code = RemoveTransactionDirectory(request.transaction);
    if (code != 0) {
      Tell(error_out,
           "Update marker finalized; transaction cleanup is deferred: " + SystemMessage(code));
    }
    return kMarkerMoved;
  } catch (const std::exception& failure) {
    Tell(error_out, failure.what());
    return kFinalizeFailed;
  }
}

}  // namespace tolvarine::updater
