#include "crash_lab/workspace_reader.h"

#include "simulated_windows/file_system.h"

namespace tolvarine::updater::crash_lab {
namespace {

application::UpdatePaths PathsOf(const simulated::SimulatedUpdate& staged) {
  application::UpdatePaths paths;
  paths.target = staged.target;
  paths.workspace = staged.layout.workspace;
  paths.pending = staged.layout.pending_marker;
  paths.completed = staged.layout.completed_marker;
  paths.launched = staged.layout.launched_marker;
  paths.transaction = staged.layout.transaction;
  return paths;
}

}  // namespace

WorkspaceReader::WorkspaceReader(const simulated::SimulatedUpdate& staged)
    : paths_(PathsOf(staged)), explored_(simulated::Computer::Current()) {}

const WorkspaceReading& WorkspaceReader::Read(const Disks& disks, const Image& image) {
  const auto [reading, is_new] = readings_.try_emplace(Fingerprint(image));
  if (is_new) reading->second = ReadAnew(disks);
  return reading->second;
}

WorkspaceReading WorkspaceReader::ReadAnew(const Disks& disks) {
  computer_.Restart(disks);
  computer_.MakeCurrent();
  const std::uint64_t version = computer_.disks.version();
  const application::WorkspaceReport report = application::ReadWorkspace(paths_);
  explored_.MakeCurrent();
  return {report.state, report.content,
          computer_.disks.version() == version && computer_.files().open_handles() == 0};
}

}  // namespace tolvarine::updater::crash_lab
