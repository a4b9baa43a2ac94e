// What the updater's steps would fail at, found before anything is changed: all reasons at once.

#pragma once

#include "state/state_directory.h"
#include "update/difference.h"
#include "update/reason.h"

namespace tolvarine::updater::application {

struct PreflightRequest {
  const Installation& installation;
  const Difference& difference;
  Path restart;
  std::u16string id;             // The update's.
  bool clear_read_only = false;  // Read-only files are then no reason.
};

// Reasons and warnings: a caller with an administrator's rights, missing rights, space for stage, kept copies, baseline and
// the largest file, the lists' and the command line's limits, names that collide with temporaries,
// log.txt in a list, the updater or the state directory in the target, paths too long (files 259
// units, directories 247), FAT and exFAT, entries of the wrong kind, read-only files, listed files
// that cannot be opened for writing and deleting (with the holder's name where the system knows it).
// Warnings: processes whose image lies in the target, and files that are held while there are some,
// since the application itself may be the one; two volumes; files changed by others. Changes nothing
// on disk, but for a probe file in the target that is removed again.
[[nodiscard]] Reasons FindReasons(const PreflightRequest& request);

}  // namespace tolvarine::updater::application
