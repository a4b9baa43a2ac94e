// The name of the temporary that a new file has, beside its destination, until it is complete.

#pragma once

#include "journal/journal_record.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Appended to the entry's path.
inline constexpr PathView kTemporarySuffix = u".tolvarine-update-new";

// The path of an entry's temporary, relative like the entry's own path: to the target or to the
// backup tree.
[[nodiscard]] inline Path TemporaryOf(const JournalEntry& entry) {
  return entry.path + Path(kTemporarySuffix);
}

}  // namespace tolvarine::updater
