#include "inspection/update_layout.h"

#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "state/state_directory.h"
#include "text/system_error.h"

namespace tolvarine::updater::inspection {

UpdateLayout LayoutOf(const Path& state_root, std::u16string_view install_key,
                      std::u16string_view update_id) {
  const application::Installation installation{.target = {},
                                               .state = JoinPath(state_root, install_key)};
  const application::UpdatePaths paths = application::PathsOf(installation, update_id);
  return {.state = installation.state,
          .workspace = paths.workspace,
          .stages = paths.stages,
          .pending_marker = paths.pending,
          .completed_marker = paths.completed,
          .installed_manifest = application::InstalledManifestOf(installation),
          .launched_marker = paths.launched,
          .archive = JoinPath(paths.workspace, u"archive.zip"),
          .transaction = paths.transaction};
}

SourceInventory InventoryOf(const Path& release) {
  SourceInventory inventory;
  const std::uint32_t code = EnumerateTree(release, [&](const TreeEntry& entry) -> std::uint32_t {
    if (KindOf(entry) == FileKind::directory) return 0;
    const LockedReleaseFile file(entry.path);
    inventory.push_back({LexicallyRelative(entry.path, release),
                         static_cast<std::uint64_t>(file.size()), Sha256OfLockedFile(file)});
    return 0;
  });
  if (code != 0) throw SystemError(code);
  return inventory;
}

}  // namespace tolvarine::updater::inspection
