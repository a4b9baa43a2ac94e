#include "files/directories.h"

#include <cstddef>

#include "files/status.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/handles.h"

namespace tolvarine::updater {
namespace {

// The length of the root, for which no directory is made. In the form `\\?\C:\…` it includes the
// drive: the root by text is only `\\?\`.
std::size_t CreationRootLength(PathView path) {
  const PathParts parts = DividePath(path);
  const std::size_t root = parts.root_name.size() + parts.root_directory.size();
  const PathParts inner = DividePath(parts.relative);
  const bool drive = HasDrivePrefix(parts.relative) && !inner.root_directory.empty();
  return drive ? root + inner.root_name.size() : root;
}

// The end of the component that begins at `start`, or behind the separators there.
std::size_t ComponentEnd(PathView path, std::size_t start) {
  while (start < path.size() && IsSeparator(path[start])) ++start;
  while (start < path.size() && !IsSeparator(path[start])) ++start;
  return start;
}

}  // namespace

std::uint32_t CreateOneDirectory(const Path& path) {
  if (platform::CreateDirectoryW(path.c_str())) return 0;
  const std::uint32_t code = platform::GetLastError();
  if (code != platform::kErrorAlreadyExists) return code;
  const FileStatus status = QueryStatus(path);
  if (status.error != 0) return status.error;
  return status.kind == FileKind::directory ? 0 : code;
}

std::uint32_t CreateDirectories(PathView path) {
  if (path.empty()) return platform::kErrorPathNotFound;
  std::uint32_t last = 0;
  std::uint32_t remembered = 0;
  std::size_t end = CreationRootLength(path);
  while (end < path.size()) {
    end = ComponentEnd(path, end);
    last = CreateOneDirectory(Path(path.substr(0, end)));
    // A failure does not stop the loop: a parent that may not be made may still exist.
    if (last != 0 && !IsNotFoundError(last)) remembered = last;
  }
  if (last == 0) return 0;
  return remembered != 0 ? remembered : last;
}

}  // namespace tolvarine::updater
