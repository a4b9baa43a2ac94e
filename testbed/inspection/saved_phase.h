// The phase of a transaction, by the journal that lies on the disk.

#pragma once

#include <filesystem>

#include "journal/journal_record.h"

namespace tolvarine::updater::inspection {

// The phase of the newest valid record in a transaction directory. None where there is no such
// directory or nothing in it; Corrupt where there is something, but no valid record.
//
// On Windows the slots must not be in use: a reader's open file makes the rename of a save fail.
[[nodiscard]] TransactionPhase SavedPhase(const std::filesystem::path& transaction);

}  // namespace tolvarine::updater::inspection
