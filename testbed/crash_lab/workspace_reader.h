// Asks the application's library where the update stands on given disks, on a computer of its own:
// the calls are none of the run that is explored.

#pragma once

#include <cstdint>
#include <unordered_map>

#include "crash_lab/disks.h"
#include "simulated_update/simulated_update.h"
#include "state/workspace_state.h"

namespace tolvarine::updater::crash_lab {

struct WorkspaceReading {
  application::WorkspaceState state{};
  application::InstallationContent content{};
  bool read_only = true;  // The disks are as they were, and no handle is open.
};

class WorkspaceReader {
 public:
  explicit WorkspaceReader(const simulated::SimulatedUpdate& staged);

  // `image` is that of the disks. Disks with the same image are read once.
  const WorkspaceReading& Read(const Disks& disks, const Image& image);

 private:
  [[nodiscard]] WorkspaceReading ReadAnew(const Disks& disks);

  application::UpdatePaths paths_;
  simulated::Computer& explored_;
  simulated::Computer computer_;
  std::unordered_map<std::uint64_t, WorkspaceReading> readings_;  // By fingerprint.
};

}  // namespace tolvarine::updater::crash_lab
