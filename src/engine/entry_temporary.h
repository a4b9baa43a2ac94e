// The name of the temporary under which an entry is made, beside its destination.

#pragma once

#include "journal/journal_record.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Appended to the entry's path.
inline constexpr PathView kTemporarySuffix = u".tolvarine-update-new";

// The temporary's path, relative to the root that the entry's path is joined to: the target, or the
// backup tree.
[[nodiscard]] inline Path TemporaryOf(const JournalEntry& entry) {
  return entry.path + Path(kTemporarySuffix);
}

}  // namespace tolvarine::updater
