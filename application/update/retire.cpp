#include "update/retire.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "engine/cleanup.h"
#include "engine/entry_temporary.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "state/request.h"
#include "text/decimal.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kNameDigits = 16;

// A name in S\abandoned that is free: one more than the greatest.
Path FreeName(const Path& abandoned) {
  std::uint64_t greatest = 0;
  const std::uint32_t code =
      EnumerateDirectory(abandoned, [&](const TreeEntry& entry) -> std::uint32_t {
        const PathView name = LastComponent(entry.path);
        const auto number = ParseDecimal<std::uint64_t>(std::string(name.begin(), name.end()));
        if (number) greatest = std::max(greatest, *number);
        return 0;
      });
  if (code != 0) throw FilesystemError("enumerate", code, abandoned);
  std::string digits;
  AppendDecimal(digits, greatest + 1);
  digits.insert(0, kNameDigits - std::min(kNameDigits, digits.size()), '0');
  return JoinPath(abandoned, Utf16FromUtf8(digits));
}

}  // namespace

Path MoveToAbandoned(const Installation& installation, const Path& directory) {
  if (QueryLinkStatus(directory).kind == FileKind::not_found) return {};
  const Path abandoned = JoinPath(installation.state, u"abandoned");
  const std::uint32_t code = CreateDirectories(abandoned);
  if (code != 0) throw FilesystemError("create_directories", code, abandoned);
  Path name = FreeName(abandoned);
  if (!platform::MoveFileExW(directory.c_str(), name.c_str(), platform::kMovefileWriteThrough)) {
    throw FilesystemError("rename", platform::GetLastError(), directory);
  }
  return name;
}

void AbandonUpdate(const Installation& installation, const std::u16string& id) {
  const UpdatePaths paths = PathsOf(installation, id);
  MoveToAbandoned(installation, paths.stages);
  MoveToAbandoned(installation, paths.workspace);
}

void SweepTemporaries(const Installation& installation, const WorkspaceStatus& workspace) {
  std::vector<Path> paths;
  if (workspace.report.journal) {
    for (const JournalEntry& entry : workspace.report.journal->entries) paths.push_back(entry.path);
  } else {
    const LoadedRequest request = LoadRequest(PathsOf(installation, workspace.id));
    for (const SourceInventoryEntry& row : request.request.inventory) paths.push_back(row.path);
  }
  for (const Path& path : paths) {
    try {
      RemoveEntry(SafeJoin(installation.target, path + Path(kTemporarySuffix), "temporary"));
    } catch (const std::runtime_error&) {
      continue;  // It does not lie in the target.
    }
  }
}

void SweepRestored(const Installation& installation, const WorkspaceStatus& workspace) {
  if (workspace.report.state != WorkspaceState::Restored) return;
  TransactionRequest request;
  request.target = installation.target;
  request.transaction = PathsOf(installation, workspace.id).transaction;
  CleanupRolledBack(request, nullptr);
}

// A link is removed itself: RemoveTree enters its root whatever it is.
void RemoveDirectory(const Path& directory) {
  std::uint32_t code = RemoveEntry(directory).error;
  if (code == platform::kErrorDirNotEmpty) code = RemoveTree(directory).error;
  if (code != 0) throw FilesystemError("remove", code, directory);
}

void RemoveAllBut(const Path& directory, const std::set<std::u16string>& kept) {
  std::vector<Path> removed;
  const std::uint32_t code =
      EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
        if (!kept.contains(std::u16string(LastComponent(entry.path)))) {
          removed.push_back(entry.path);
        }
        return 0;
      });
  if (code != 0 && !IsNotFoundError(code)) throw FilesystemError("enumerate", code, directory);
  for (const Path& path : removed) RemoveDirectory(path);
}

}  // namespace tolvarine::updater::application
