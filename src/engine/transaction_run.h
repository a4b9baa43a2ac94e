// One transaction, from its plan or from the state in which an earlier process left it.
//
// Invariants. "Durable" means saved in the journal, or renamed with write-through.
//
//  1. At every moment each entry's path in the target holds its complete old file, its complete
//     new file, or, where the baseline or the release has no file, nothing. During a step the
//     entry's temporary, `<name>.tolvarine-update-new`, may exist beside it with any content. An
//     interrupted step leaves it there until the step is repeated or CleanupRolledBack removes
//     it.
//  2. No entry of the target is changed before a verified, durable copy of every file that will be
//     replaced or deleted exists.
//  3. The work on an entry begins after its intent is durable, and its counter is saved after the
//     work is durable. A step may therefore be done twice, and every step permits that.
//  4. The bytes at an entry's path come only from a release file that was verified through the same
//     handle that they were copied from, or from a verified baseline copy.
//  5. The application's executable is the last entry.
//  6. The recovery policy, the saved phase and its counter decide how a run continues; the phase in
//     memory decides how a failure is handled. The intent decides nothing.
//  7. After a durable Committed no failure causes a rollback.
//  8. In the target, a run changes only the entries of the journal, their temporaries, and missing
//     parent directories, which it makes. A file of the installation that has the path of a
//     temporary is therefore removed.
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
//     Committed  -> none       FinalizeUpdateMarkers (finalization.h)
//
// Within a phase, the record is saved twice for each entry. The failure handler of the run saves
// the failure's text. A run of n entries that succeeds from the start saves 4n + 3 times.
//
// The caller must hold the installation lock; the engine only locks single release files.

#pragma once

#include <string>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Installs the release, or continues the transaction that the journal holds. The result holds the
// phase of the run's record when the run ended. `error_out`, if given, is empty if nothing failed;
// otherwise it holds the record's error, or the failure's text if the record has none.
//
// Throws only what a hook throws that does not derive from std::exception (after SimulatedCrash the
// disk is as a crash at that point would leave it), and std::bad_alloc while it copies the request
// or forms the text of a failure.
[[nodiscard]] TransactionResult RunTransaction(const TransactionRequest& request,
                                               std::string* error_out);

}  // namespace tolvarine::updater
