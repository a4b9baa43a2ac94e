// Removing entries and trees.

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

// An entry that was just removed may linger while somebody else still holds it. The attempts follow
// one another at once.
constexpr int kDirectoryRemovalAttempts = 10;

struct OpenedForRemoval {
  FileHandle file;
  bool may_write_attributes = false;
  std::uint32_t error = 0;
};

OpenedForRemoval OpenForRemoval(const Path& path) {
  const auto open = [&](std::uint32_t access) {
    return FileHandle(platform::CreateFile2(
        path.c_str(), access, platform::kFileShareAll, platform::kOpenExisting,
        platform::kFileFlagBackupSemantics | platform::kFileFlagOpenReparsePoint));
  };
  OpenedForRemoval opened;
  opened.file =
      open(platform::kDelete | platform::kFileReadAttributes | platform::kFileWriteAttributes);
  opened.may_write_attributes = static_cast<bool>(opened.file);
  // The right to delete can come from the directory alone, where the entry grants nothing.
  if (!opened.file && platform::GetLastError() == platform::kErrorAccessDenied) {
    opened.file = open(platform::kDelete);
  }
  if (!opened.file) opened.error = platform::GetLastError();
  return opened;
}

bool IsUnsupported(std::uint32_t code) {
  return code == platform::kErrorInvalidFunction || code == platform::kErrorNotSupported ||
         code == platform::kErrorInvalidParameter;
}

std::uint32_t DisposeExtended(const FileHandle& file, std::uint32_t flags) {
  const platform::FileDispositionInfoEx disposition{flags};
  return platform::SetFileInformationByHandle(file.get(), disposition) ? 0
                                                                       : platform::GetLastError();
}

// For volumes and systems that do not know how to ignore the read-only attribute, or POSIX
// semantics at all.
std::uint32_t DisposeFallback(const FileHandle& file) {
  const std::uint32_t code = DisposeExtended(
      file, platform::kFileDispositionDelete | platform::kFileDispositionPosixSemantics);
  if (!IsUnsupported(code)) return code;
  const platform::FileDispositionInfo disposition{.delete_file = true};
  return platform::SetFileInformationByHandle(file.get(), disposition) ? 0
                                                                       : platform::GetLastError();
}

// Clears a read-only attribute for the attempt, and puts it back if the attempt is refused again.
std::uint32_t DisposeWithoutReadonly(const FileHandle& file) {
  platform::FileBasicInfo basic;
  if (!platform::GetFileInformationByHandleEx(file.get(), &basic)) return platform::GetLastError();
  if ((basic.attributes & platform::kFileAttributeReadonly) == 0) {
    return platform::kErrorAccessDenied;
  }
  platform::FileBasicInfo writable = basic;
  writable.attributes &= ~platform::kFileAttributeReadonly;
  // Attributes of 0 would leave them as they are.
  if (writable.attributes == 0) writable.attributes = platform::kFileAttributeNormal;
  if (!platform::SetFileInformationByHandle(file.get(), writable)) return platform::GetLastError();
  const std::uint32_t code = DisposeFallback(file);
  if (code == platform::kErrorAccessDenied) platform::SetFileInformationByHandle(file.get(), basic);
  return code;
}

std::uint32_t Dispose(const OpenedForRemoval& opened) {
  std::uint32_t code = DisposeExtended(opened.file, platform::kFileDispositionDelete |
                                                        platform::kFileDispositionPosixSemantics |
                                                        platform::kFileDispositionIgnoreReadonly);
  if (!IsUnsupported(code)) return code;
  code = DisposeFallback(opened.file);
  if (code == platform::kErrorAccessDenied && opened.may_write_attributes) {
    code = DisposeWithoutReadonly(opened.file);
  }
  return code;
}

bool MayYetEmpty(std::uint32_t code) {
  return code == platform::kErrorDirNotEmpty || code == platform::kErrorAccessDenied;
}

// Removes a directory that the walk has emptied.
RemovalResult RemoveEmptied(const Path& path) {
  RemovalResult result = RemoveEntry(path);
  for (int attempt = 1; attempt < kDirectoryRemovalAttempts && MayYetEmpty(result.error);
       ++attempt) {
    result = RemoveEntry(path);
  }
  return result;
}

// What an entry is may have changed since its directory's record was read.
TreeRemovalResult RemoveEntryOrTree(const Path& path) {
  const FileStatus status = QueryLinkStatus(path);
  if (status.kind == FileKind::none) return {0, status.error};
  if (status.kind == FileKind::directory) return RemoveTree(path);
  const RemovalResult result = RemoveEntry(path);
  return {result.removed ? 1U : 0U, result.error};
}

}  // namespace

RemovalResult RemoveEntry(const Path& path) {
  const OpenedForRemoval opened = OpenForRemoval(path);
  if (!opened.file) return {false, IsNotFoundError(opened.error) ? 0 : opened.error};
  const std::uint32_t code = Dispose(opened);
  return {code == 0, code};
}

TreeRemovalResult RemoveTree(const Path& path, const Path& last) {
  TreeRemovalResult total;  // Its error is an entry's, apart from the enumeration's own codes.
  const auto remove = [&total](const Path& entry) {
    const TreeRemovalResult result = RemoveEntryOrTree(entry);
    total.removed += result.removed;
    total.error = result.error;
    return result.error;
  };
  bool last_is_there = false;
  const std::uint32_t walk = EnumerateDirectory(path, [&](const TreeEntry& entry) {
    if (entry.path != last) return remove(entry.path);
    last_is_there = true;
    return std::uint32_t{0};
  });
  if (total.error != 0) return total;
  if (walk != 0 && !IsNotFoundError(walk)) return {total.removed, walk};
  if (last_is_there && remove(last) != 0) return total;
  const RemovalResult emptied = RemoveEmptied(path);
  return {total.removed + (emptied.removed ? 1U : 0U), emptied.error};
}

}  // namespace tolvarine::updater
