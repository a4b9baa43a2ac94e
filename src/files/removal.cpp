#include "files/removal.h"

#include <optional>
#include <utility>

#include "files/enumeration.h"
#include "files/status.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/handles.h"

namespace tolvarine::updater {
namespace {

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
  // Where the entry itself grants nothing, its directory can still grant the right to delete it.
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

// For volumes and systems that cannot ignore the read-only attribute, or that lack POSIX semantics.
std::uint32_t DisposeFallback(const FileHandle& file) {
  const std::uint32_t code = DisposeExtended(
      file, platform::kFileDispositionDelete | platform::kFileDispositionPosixSemantics);
  if (!IsUnsupported(code)) return code;
  const platform::FileDispositionInfo disposition{.delete_file = true};
  return platform::SetFileInformationByHandle(file.get(), disposition) ? 0
                                                                       : platform::GetLastError();
}

// Clears a read-only attribute, tries again, and restores the attribute if access is denied again.
std::uint32_t DisposeWithoutReadonly(const FileHandle& file) {
  platform::FileBasicInfo basic;
  if (!platform::GetFileInformationByHandleEx(file.get(), &basic)) return platform::GetLastError();
  if ((basic.attributes & platform::kFileAttributeReadonly) == 0) {
    return platform::kErrorAccessDenied;
  }
  platform::FileBasicInfo writable = basic;
  writable.attributes &= ~platform::kFileAttributeReadonly;
  // To the call, attributes of 0 mean "unchanged".
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

// Removes a directory whose entries were removed. Somebody else may still have an entry open, which
// then stays in the directory until it is closed. The attempts follow each other without a wait.
RemovalResult RemoveEmptied(const Path& path) {
  RemovalResult result = RemoveEntry(path);
  for (int attempt = 1; attempt < kDirectoryRemovalAttempts && MayYetEmpty(result.error);
       ++attempt) {
    result = RemoveEntry(path);
  }
  return result;
}

class TreeRemoval {
 public:
  TreeRemovalResult Run(const Path& root, const Path& last) {
    open_.Enter(root);
    bool last_is_left = false;
    while (result_.error == 0 && open_.depth() != 0) {
      const bool at_root = open_.depth() == 1;
      const std::optional<TreeEntry> entry = open_.innermost().Next();
      if (entry && at_root && entry->path == last) {
        last_is_left = true;
      } else if (entry) {
        Remove(entry->path);
      } else if (EnumerationFailed()) {
        result_.error = open_.innermost().code();
      } else if (at_root && std::exchange(last_is_left, false)) {
        Remove(last);
      } else {
        RemoveInnermost();
      }
    }
    return result_;
  }

 private:
  // A directory that is missing needs no removal. A file in its place is removed as an entry.
  [[nodiscard]] bool EnumerationFailed() {
    const std::uint32_t code = open_.innermost().code();
    return code != 0 && !IsNotFoundError(code);
  }

  // Asks for the kind again: it may have changed since the directory's record was read.
  void Remove(const Path& entry) {
    const FileStatus status = QueryLinkStatus(entry);
    if (status.kind == FileKind::none) {
      result_.error = status.error;
    } else if (status.kind == FileKind::directory) {
      open_.Enter(entry);
    } else {
      Count(RemoveEntry(entry));
    }
  }

  void RemoveInnermost() {
    const Path directory = open_.innermost().directory();
    open_.Leave();
    Count(RemoveEmptied(directory));
  }

  void Count(const RemovalResult& removal) {
    if (removal.removed) ++result_.removed;
    result_.error = removal.error;
  }

  OpenSearches open_;
  TreeRemovalResult result_;
};

}  // namespace

RemovalResult RemoveEntry(const Path& path) {
  const OpenedForRemoval opened = OpenForRemoval(path);
  if (!opened.file) return {false, IsNotFoundError(opened.error) ? 0 : opened.error};
  const std::uint32_t code = Dispose(opened);
  return {code == 0, code};
}

TreeRemovalResult RemoveTree(const Path& path, const Path& last) {
  return TreeRemoval().Run(path, last);
}

}  // namespace tolvarine::updater
