// Making directories, and walking what they hold.

#include <cstddef>

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

// How much of the path is its root: the root name, the separators after it, and, in the form
// `\\?\C:\…`, the drive prefix that then follows.
std::size_t CreationRootLength(PathView path) {
  const PathParts parts = DividePath(path);
  const std::size_t root = parts.root_name.size() + parts.root_directory.size();
  const PathParts inner = DividePath(parts.relative);
  const bool drive = HasDrivePrefix(parts.relative) && !inner.root_directory.empty();
  return drive ? root + inner.root_name.size() : root;
}

// Where the separators and the component from `start` on end.
std::size_t ComponentEnd(PathView path, std::size_t start) {
  while (start < path.size() && IsSeparator(path[start])) ++start;
  while (start < path.size() && !IsSeparator(path[start])) ++start;
  return start;
}

bool IsDotName(const std::u16string& name) { return name == u"." || name == u".."; }

std::uint32_t UnlessEndOfDirectory(std::uint32_t code) {
  return code == platform::kErrorNoMoreFiles ? 0 : code;
}

// What became of a directory whose first record could not be read: the root of a volume has no "."
// and "..", so that an empty one holds no first record at all.
std::uint32_t OpeningFailure(const Path& directory) {
  const std::uint32_t code = platform::GetLastError();
  if (code == platform::kErrorFileNotFound && QueryStatus(directory).kind == FileKind::directory) {
    return 0;
  }
  return UnlessEndOfDirectory(code);
}

TreeEntry EntryOf(const Path& directory, const platform::FindData& record) {
  const bool reparse_point = (record.attributes & platform::kFileAttributeReparsePoint) != 0;
  return {.path = JoinPath(directory, record.name),
          .attributes = record.attributes,
          .reparse_tag = reparse_point ? record.reparse_tag : 0,
          .size = record.size,
          .size_known = !reparse_point};
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
    if (last != 0 && !IsNotFoundError(last)) remembered = last;
  }
  if (last == 0) return 0;
  return remembered != 0 ? remembered : last;
}

std::uint32_t EnumerateDirectory(const Path& directory, const EntryVisitor& visit) {
  const Path pattern = JoinPath(directory, u"*");
  platform::FindData record;
  const FindHandle search(platform::FindFirstFileExW(pattern.c_str(), platform::kFindExInfoBasic,
                                                     &record, platform::kFindExSearchNameMatch, 0));
  if (!search) return OpeningFailure(directory);
  do {
    if (IsDotName(record.name)) continue;
    const std::uint32_t code = visit(EntryOf(directory, record));
    if (code != 0) return code;
  } while (platform::FindNextFileW(search.get(), &record));
  return UnlessEndOfDirectory(platform::GetLastError());
}

std::uint32_t EnumerateTree(const Path& root, const EntryVisitor& visit) {
  return EnumerateDirectory(root, [&](const TreeEntry& entry) -> std::uint32_t {
    const std::uint32_t code = visit(entry);
    if (code != 0 || KindOf(entry) != FileKind::directory) return code;
    return EnumerateTree(entry.path, visit);
  });
}

}  // namespace tolvarine::updater
