// The phase Apply: the only place where the installation is changed on the way forward.
//
// The durable steps of one installed file, in order: the announcement in the journal; the complete
// temporary beside the target, flushed; the write-through rename onto the target; the count in the
// journal. There is no moment at which the target is absent or partial. The release file is hashed
// and copied through one locked handle, which is held until the rename is done. The paths of the
// request must be canonical.

#pragma once

#include "engine/transaction.h"

namespace tolvarine::updater {

// Applies every entry from the counter `apply` on, after proving every baseline copy once more, and
// ends by saving phase Committed. Nothing is retried; a deletion that finds nothing counts like any
// other.
//
// Throws std::runtime_error, SystemError, FilesystemError or what a hook throws, with the record
// still in Apply: entries before the counter are new, the one at the counter is old or new, those
// behind it are old. Only a failure of the last save, or of the hook behind it, finds the record in
// Committed. Directories that were made stay, and so does a temporary that could not be renamed or
// removed; CleanupRolledBack takes the temporaries away.
void ApplyRelease(const TransactionRequest& request, TransactionJournal& journal);

}  // namespace tolvarine::updater
