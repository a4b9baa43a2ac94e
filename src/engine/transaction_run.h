// One transaction from its plan to its end, or from wherever an earlier process left it.
//
// Invariants. "Durable" means saved in the journal, or renamed with write-through.
//
//  1. At every moment each name in the target holds its complete old file, its complete new file,
//     or, where the baseline or the release has none, nothing.
//  2. The target is not changed before a proved, durable copy of every file to be touched exists.
//  3. The work on an entry begins after its announcement is durable; its count becomes durable
//  after
//     the work is. A step may therefore be done twice, and tolerates it.
//  4. Bytes come under a target's name only from a release file that was verified through the
//  locked
//     handle they were copied from, or from a verified baseline copy.
//  5. The application's executable is the last entry.
//  6. How a run goes on is decided by the saved phase and its counter alone; how a failure is
//  handled,
//     by the phase in memory. Nothing decides by the intent.
//  7. From a durable Committed on, no failure leads back.
//  8. What the journal and the lists do not name is not touched.
//
// The saved phases (every arrow is one save):
//
//                  plan                  all copied             all applied
//     no journal --------> Backup --------------------> Apply ---------------> Committed
//                             |                          |  ^                     |
//                             | cancelled                |  | resumed             | finalized
//                             v              failed,     v  |                     v
//                         RolledBack <------ cancelled - Rollback             no journal
//                             |                             (all restored
//                             +---- resumed --> Apply        --> RolledBack)
//
//     transition              performed by
//     ----------------------  -------------------------------------------------
//     none       -> Backup      PlanTransaction, and the run's first save
//     Backup     -> Apply       BackupBaseline
//     Backup     -> RolledBack  the run, for RestoreBaseline
//     Apply      -> Committed   ApplyRelease
//     Apply      -> Rollback    MarkRollback, for a failure or RestoreBaseline
//     Rollback   -> RolledBack  RollbackToBaseline
//     RolledBack -> Apply       the run, for ResumeForward
//     Committed  -> none        FinalizeUpdateMarkers (cleanup.h)
//
// A run that succeeds from the start with n entries saves 4n + 3 times. The caller holds the
// installation lock; the engine takes none of its own but the locks on single release files.

#pragma once

#include <string>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Installs the release, or carries on with the transaction that the journal holds. The result tells
// the phase that the run's record ended in. `error`, if given, is empty unless the run met a
// failure; then it holds the record's error, or the failure's text where the record has none.
//
// Raises nothing but what a hook throws outside the standard hierarchy (SimulatedCrash leaves the
// disk as a crash at that point would), and exhausted memory while the request is copied.
[[nodiscard]] TransactionResult RunTransaction(const TransactionRequest& request,
                                               std::string* error);

}  // namespace tolvarine::updater
