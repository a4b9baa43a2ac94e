// The request of an update: what its updater is to be started with. It is durable before the first
// start, in two files, and the same for every start.

#pragma once

#include <string>
#include <vector>

#include "lists/managed_deletion_list.h"
#include "lists/source_inventory.h"
#include "state/checked_record.h"
#include "state/state_directory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

// A program that is run from its copy in the state directory.
struct ProgramCopy {
  Path path;           // Full.
  std::string sha256;  // Recorded when it was copied, and compared before each start.
};

struct UpdateRequest {
  Path target;                // Of the installation.
  Path restart;               // As --restart takes it.
  Path package;               // Where the release was unpacked when the update was prepared.
  Path source;                // The staged release.
  SourceInventory inventory;  // What is staged.
  ManagedDeletionList deletions;
  ProgramCopy updater;
  ProgramCopy resumer;
};

// Makes both files durable, the second one first. Throws as WriteFileDurably does.
void SaveRequest(const UpdatePaths& paths, const UpdateRequest& request);

struct LoadedRequest {
  RecordState state = RecordState::Missing;
  UpdateRequest request;  // Where Sound.
};

// A record that is sound but does not hold a request counts as Damaged.
[[nodiscard]] LoadedRequest LoadRequest(const UpdatePaths& paths);

}  // namespace tolvarine::updater::application
