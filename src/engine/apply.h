// The phase Apply: installs the release files and deletes the managed deletions. Only this phase
// and the rollback change the installation.
//
// The durable steps of one installed file, in order: the intent is saved in the journal; the
// complete temporary beside the target is written and flushed; it is renamed onto the target with
// write-through; the counter is saved in the journal. At no time is the target absent or partial.
// The release file is hashed and copied through one locked handle, which is held until after the
// rename. The paths of the request must be canonical.

#pragma once

#include "engine/transaction.h"

namespace tolvarine::updater {

// Verifies every baseline copy once more, applies every entry from the counter `apply` on, and
// saves phase Committed. Retries nothing. A deletion of a file that does not exist succeeds.
//
// Throws std::runtime_error, SystemError, FilesystemError or what a hook throws. The record is then
// still in Apply: entries before the counter are new, the entry at the counter is old or new, later
// entries are old. The exceptions are a failure of the last save and of the hook after it, which
// leave the record in Committed. Directories that were made stay, and so does a temporary that
// could not be renamed; CleanupRolledBack removes the temporaries.
void ApplyRelease(const TransactionRequest& request, TransactionJournal& journal);

}  // namespace tolvarine::updater
