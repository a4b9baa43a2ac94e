// Removing entries and trees.

#include <vector>

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

// A removal of a tree under way.
class TreeRemoval {
 public:
  // Removes what a directory holds. A directory's own files go before its subdirectories, so that a
  // removal that is cut short never leaves a file that counts on a subdirectory that has gone.
  std::uint32_t Empty(const Path& directory) {
    std::vector<Path> subdirectories;
    std::uint32_t entry_error = 0;  // Kept apart from the enumeration's own codes.
    const std::uint32_t walk = EnumerateDirectory(directory, [&](const TreeEntry& entry) {
      entry_error = RemoveOrPostpone(entry.path, subdirectories);
      return entry_error;
    });
    if (entry_error != 0) return entry_error;
    if (walk != 0 && !IsNotFoundError(walk)) return walk;
    for (const Path& subdirectory : subdirectories) {
      const std::uint32_t code = Remove(subdirectory);
      if (code != 0) return code;
    }
    return 0;
  }

  std::uint32_t Remove(const Path& directory) {
    const std::uint32_t code = Empty(directory);
    return code != 0 ? code : Count(RemoveEmptied(directory));
  }

  [[nodiscard]] std::uint64_t removed() const { return removed_; }

 private:
  // What an entry is may have changed since its directory's record was read.
  std::uint32_t RemoveOrPostpone(const Path& path, std::vector<Path>& subdirectories) {
    const FileStatus status = QueryLinkStatus(path);
    if (status.kind == FileKind::none) return status.error;
    if (status.kind != FileKind::directory) return Count(RemoveEntry(path));
    subdirectories.push_back(path);
    return 0;
  }

  std::uint32_t Count(const RemovalResult& result) {
    if (result.removed) ++removed_;
    return result.error;
  }

  std::uint64_t removed_ = 0;
};

}  // namespace

RemovalResult RemoveEntry(const Path& path) {
  const OpenedForRemoval opened = OpenForRemoval(path);
  if (!opened.file) return {false, IsNotFoundError(opened.error) ? 0 : opened.error};
  const std::uint32_t code = Dispose(opened);
  return {code == 0, code};
}

TreeRemovalResult RemoveTree(const Path& path) {
  TreeRemoval removal;
  const std::uint32_t code = removal.Remove(path);
  return {removal.removed(), code};
}

}  // namespace tolvarine::updater
