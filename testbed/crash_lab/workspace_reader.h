// Asks the application's library where the update stands on given disks, on a computer of its own:
// the calls are none of the run that is explored.

#pragma once

#include <cstdint>
#include <string>
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

  // `image` is that of the disks. Disks that differ only in what no state depends on are read once:
  // baseline copies, stages, temporaries and the log.
  const WorkspaceReading& Read(const Disks& disks, const Image& image);

 private:
  [[nodiscard]] bool IsRelevant(const std::u16string& path) const;
  [[nodiscard]] std::uint64_t KeyOf(const Image& image) const;
  [[nodiscard]] WorkspaceReading ReadAnew(const Disks& disks);

  application::UpdatePaths paths_;
  simulated::Computer& explored_;
  simulated::Computer computer_;
  std::u16string workspace_;  // Folded, with a separator at its end.
  std::u16string copies_;     // Likewise, as is the next.
  std::u16string target_;
  std::unordered_map<std::uint64_t, WorkspaceReading> readings_;  // By KeyOf.
};

}  // namespace tolvarine::updater::crash_lab
