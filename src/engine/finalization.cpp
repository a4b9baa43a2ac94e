#include "engine/finalization.h"

#include <exception>
#include <stdexcept>
#include <string_view>

#include "engine/durable_record.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "journal/journal_store.h"
#include "platform/error_codes.h"
#include "text/error_text.h"

namespace tolvarine::updater {
namespace {

// Empty if no slot is valid. The journal only chooses what is removed last, so that nothing in it,
// not even a size that no memory holds, makes the removal fail.
Path NewestSlot(const Path& transaction) {
  try {
    const JournalLoadResult loaded = LoadJournal(transaction);
    return loaded.journal ? JournalSlot(transaction, loaded.journal->generation) : Path();
  } catch (const std::exception&) {
    return {};
  }
}

// Removes `newest_slot` last. If the removal were interrupted with only the older slot left, the
// next run would continue from a phase that needs the backup tree, which is already removed.
// Returns the code of the failure that leaves the directory in place, 0 if it is removed.
std::uint32_t RemoveTransactionDirectory(const Path& transaction, const Path& newest_slot) {
  const std::uint32_t code = RemoveEntry(transaction).error;
  if (code != platform::kErrorDirNotEmpty) return code;
  return RemoveTree(transaction, newest_slot).error;
}

// Returns the slot that holds Committed. It is determined before the move, since nothing after the
// move may fail.
Path MoveMarker(const TransactionFinalizeRequest& request) {
  const TransactionJournal journal = LoadDurableRecord(
      request.transaction, TransactionPhase::Committed, "Update payload is not durably installed");
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

// Catches its own exceptions: a failing removal must not turn the moved marker into a failure.
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

std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                    std::string* error_out) {
  try {
    StoreErrorText(error_out, {});
    if (IsRegularFile(request.completed_marker)) {
      RemoveTransactionDirectory(request.transaction, NewestSlot(request.transaction));
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
