// The two ends of a transaction: tidying the target after a rollback, and the markers that tell the
// application of an installed update.
//
// Both read the journal from the disk again and act only on a state that is durable; only a
// finalization that finds the completed marker in place asks no journal. The marker files are
// opaque: the updater asks whether they exist, copies and moves them whole, and deletes them.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "engine/transaction.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// After a durable RolledBack: removes what stands under the names of every entry's target temporary
// and of the directories that the plan found missing, the latter as far as they are empty. A
// removal that fails is passed over; an unsafe path in the journal ends the cleanup, and what was
// removed by then is gone. Journal and backup tree stay.
//
// The request's paths must be canonical. Returns whether it came to its end; if not, `error_out`,
// if given, says why, and is empty otherwise. Throws nothing of the standard hierarchy.
bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out);

struct TransactionFinalizeRequest {
  Path transaction;                          // The transaction directory.
  Path pending_marker;                       // The file that becomes
  Path completed_marker;                     // this one.
  std::function<void()> before_marker_move;  // May be empty; called just before the move.
};

// The results of FinalizeUpdateMarkers:

// The marker was moved by this call; the transaction directory is gone, or its removal is deferred.
inline constexpr std::uint32_t kMarkerMoved = 0;
// The completed marker was there. Nothing was moved, and the directory is removed as far as it
// goes, whatever its journal says.
inline constexpr std::uint32_t kAlreadyFinal = 1;
// Failed. The marker was not moved by this call.
inline constexpr std::uint32_t kFinalizeFailed = 2;

// After a durable Committed: moves the pending marker to the completed marker in one durable step,
// which makes the update final, and removes the transaction directory. The slot that says Committed
// goes last, so that a removal that is cut short still says so.
//
// After a failure before the move, journal and pending marker stand; a parent of the completed
// marker may have been made. `error_out`, if given, says why it failed or why the removal is
// deferred, and is empty otherwise. Throws nothing of the standard hierarchy; what else
// `before_marker_move` throws leaves it.
[[nodiscard]] std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                                  std::string* error_out);

}  // namespace tolvarine::updater
