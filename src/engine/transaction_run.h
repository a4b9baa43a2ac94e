// One transaction from its plan to its end, or from wherever an earlier process left it.
//
// Invariants. "Durable" means saved in the journal, or renamed with write-through.
//
//  1. At every moment each entry's name in the target holds its complete old file, its complete new
//     file, or, where the baseline or the release has none, nothing.
//  2. No entry of the target is changed before a proved, durable copy of every file that is to be
//     touched exists.
//  3. The work on an entry begins after its announcement is durable; its count becomes durable
//     after the work is. A step may therefore be done twice, and tolerates it.
//  4. Bytes come under an entry's name only from a release file that was verified through the very
//     handle they were copied from, or from a verified baseline copy.
//  5. The application's executable is the last entry.
//  6. How a run goes on is decided by the recovery policy, the saved phase and its counter; how a
//     failure is handled, by the phase in memory. Nothing decides by the intent.
//  7. From a durable Committed on, no failure leads back.
//  8. What the journal and the lists do not name is not touched.
//
// The saved phases. Every change of phase but the last is one save:
//
//                  plan            all copied           all applied          finalized
//     no journal --------> Backup ------------> Apply -------------> Committed --------> no journal
//                             |                 |  ^
//                   cancelled |          failed |  | resumed
//                             |    or cancelled |  |
//                             |                 v  |
//                             |          Rollback  |
//                             |      all restored| |
//                             |                  v |
//                             +-----------> RolledBack
//
//     change of phase          performed by
//     -----------------------  -------------------------------------------------
//     none       -> Backup     PlanTransaction, and the run's first save
//     Backup     -> Apply      BackupBaseline
//     Backup     -> RolledBack the run, for RestoreBaseline
//     Apply      -> Committed  ApplyRelease
//     Apply      -> Rollback   MarkRollback, for a failure or RestoreBaseline
//     Rollback   -> RolledBack RollbackToBaseline
//     RolledBack -> Apply      the run, for ResumeForward
//     Committed  -> none       FinalizeUpdateMarkers (cleanup.h)
//
// Within a phase, each entry is saved twice by its phase's function, and the run's failure handler
// saves the failure's text.
//
// A run that succeeds from the start with n entries saves 4n + 3 times. The caller holds the
// installation lock; the engine takes none of its own but the locks on single release files.

#pragma once

#include <string>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Installs the release, or carries on with the transaction that the journal holds. The result tells
// the phase that the run's record ended in. `error_out`, if given, is empty unless the run met a
// failure; then it holds the record's error, or the failure's text where the record has none.
//
// Throws nothing but what a hook throws outside the standard hierarchy (SimulatedCrash leaves the
// disk as a crash at that point would), and exhausted memory while the request is copied or a
// failure is put into words.
[[nodiscard]] TransactionResult RunTransaction(const TransactionRequest& request,
                                               std::string* error_out);

}  // namespace tolvarine::updater
