// The two ends of a transaction: tidying the target after a rollback, and the markers that tell the
// application of an installed update.
//
// Both read the journal from the disk again: each acts only on a state that is durable. The marker
// files are opaque here; the updater asks whether they exist, copies and moves them whole.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "engine/transaction.h"

namespace tolvarine::updater {

// After a durable RolledBack: removes the target temporaries of every entry and the directories
// that the plan found missing, as far as they are empty. Journal and backup tree stay. Returns
// whether it came to its end; if not, `error_out`, if given, says why. Raises nothing of the
// standard hierarchy.
bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out);

struct TransactionFinalizeRequest {
  Path transaction;
  Path pending_marker;
  Path completed_marker;
  std::function<void()> before_marker_move;  // May be empty; called just before the move.
};

// The results of FinalizeUpdateMarkers.
inline constexpr std::uint32_t kMarkerMoved = 0;  // The transaction directory is gone, or deferred.
inline constexpr std::uint32_t kAlreadyFinal = 1;  // The completed marker was there; nothing moved.
inline constexpr std::uint32_t kFinalizeFailed = 2;  // The marker was not moved by this call.

// After a durable Committed: moves the pending marker to the completed marker in one durable step,
// which makes the update final, and removes the transaction directory. `error_out`, if given, says
// why it failed, or why the removal is deferred. Raises nothing of the standard hierarchy.
[[nodiscard]] std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                                  std::string* error_out);

}  // namespace tolvarine::updater
