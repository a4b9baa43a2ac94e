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
    : paths_(PathsOf(staged)),
      explored_(simulated::Computer::Current()),
      workspace_(simulated::FoldName(paths_.workspace) + u"\\"),
      copies_(workspace_ + u"TRANSACTION\\BACKUP\\"),
      target_(simulated::FoldName(paths_.target) + u"\\") {}

const WorkspaceReading& WorkspaceReader::Read(const Disks& disks, const Image& image) {
  const auto [reading, is_new] = readings_.try_emplace(KeyOf(image));
  if (is_new) reading->second = ReadAnew(disks);
  return reading->second;
}

bool WorkspaceReader::IsRelevant(const std::u16string& path) const {
  if (path.starts_with(workspace_)) return !path.starts_with(copies_) || path == copies_;
  return path.starts_with(target_) && !path.ends_with(u".TOLVARINE-UPDATE-NEW") &&
         !path.ends_with(u"\\LOG.TXT");
}

std::uint64_t WorkspaceReader::KeyOf(const Image& image) const {
  Image relevant;
  for (const auto& [path, entry] : image) {
    if (!IsRelevant(path)) continue;
    const bool slot_temporary = path.ends_with(u".NEW");
    relevant.emplace_hint(relevant.end(), path, slot_temporary ? ImageEntry{} : entry);
  }
  return Fingerprint(relevant);
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
