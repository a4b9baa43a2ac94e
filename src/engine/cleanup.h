// Cleanup of the installation after a rollback.

#pragma once

#include <string>

#include "engine/transaction.h"

namespace tolvarine::updater {

// Acts only if the journal on the disk is in phase RolledBack. Removes every entry's temporary from
// the target, then every directory that the plan found missing, if it is empty. Ignores a removal
// that fails. Stops at an unsafe path in the journal; what was removed before stays removed. The
// journal and the backup tree stay.
//
// The request's paths must be canonical. Returns true if it reached the last directory. Otherwise
// `error_out`, if given, holds the reason; it is empty on success. Does not throw exceptions that
// derive from std::exception.
bool CleanupRolledBack(const TransactionRequest& request, std::string* error_out);

}  // namespace tolvarine::updater
