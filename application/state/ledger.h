// The ledger of an installation: what has been installed in it, so that an old release or another
// one of the same number is not installed by mistake. The former ledger is kept beside it.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "state/checked_record.h"
#include "state/state_directory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct LastResult {
  std::u16string update_id;
  std::string outcome;  // "installed", "restored", "abandoned" or "adopted".
};

struct Ledger {
  std::uint64_t highest_sequence = 0;          // 0 where nothing has been installed yet.
  std::u16string highest_id;                   // Of the release that had it.
  std::vector<std::u16string> gone_back_from;  // Ids of releases that a person went back from.
  Path target;                                 // Canonical, with its volume and file id:
  std::uint32_t volume_serial = 0;
  std::uint64_t file_index = 0;
  LastResult last;
};

struct LoadedLedger {
  RecordState state = RecordState::Missing;
  Ledger ledger;  // Where Sound; a fresh one where Missing.
};

[[nodiscard]] LoadedLedger LoadLedger(const Installation& installation);

// Copies a sound ledger to its former file, then replaces it; both durably. Throws as
// WriteFileDurably does; the ledger is then the old one or the new one, whole.
void SaveLedger(const Installation& installation, const Ledger& ledger);

// Why a release may not be installed over what the ledger records, as a sentence; empty where it
// may. A sequence below the highest, an equal one with another id, and a release gone back from are
// refused, unless `accepted_sequence` is the release's, as a person has to name it.
[[nodiscard]] std::string RefusalOf(const Ledger& ledger, std::uint64_t sequence,
                                    const std::u16string& id, std::uint64_t accepted_sequence);

}  // namespace tolvarine::updater::application
