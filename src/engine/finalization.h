// Finalization of an installed update: the marker files that inform the application, and the
// removal of the transaction directory.
//
// The marker files are opaque to the updater: it checks whether they exist, copies and moves them
// as whole files, and deletes them. It never reads their content.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "text/path_algebra.h"

namespace tolvarine::updater {

struct TransactionFinalizeRequest {
  Path transaction;                          // The transaction directory.
  Path pending_marker;                       // The file that is moved to `completed_marker`.
  Path completed_marker;                     // Its new path.
  std::function<void()> before_marker_move;  // May be empty; called just before the move.
};

// The results of FinalizeUpdateMarkers:

// This call moved the marker. The transaction directory is removed, or its removal is deferred.
inline constexpr std::uint32_t kMarkerMoved = 0;
// The completed marker existed already. Nothing was moved. The transaction directory is removed as
// far as possible, whatever phase its journal is in.
inline constexpr std::uint32_t kAlreadyFinal = 1;
// A failure. This call did not move the marker.
inline constexpr std::uint32_t kFinalizeFailed = 2;

// Acts only if the journal on the disk is in phase Committed, or if the completed marker is a
// regular file. Moves the pending marker to the completed marker in one durable step, which makes
// the update final, then removes the transaction directory, the newest journal slot last: an
// interrupted removal leaves the journal in phase Committed.
//
// After a failure before the move, the journal and the pending marker are unchanged; the parent of
// the completed marker may have been made. `error_out`, if given, holds the reason of a failure or
// of a deferred removal and is empty otherwise. Does not throw exceptions that derive from
// std::exception; other exceptions of `before_marker_move` pass through.
[[nodiscard]] std::uint32_t FinalizeUpdateMarkers(const TransactionFinalizeRequest& request,
                                                  std::string* error_out);

}  // namespace tolvarine::updater
