// What a path names, and how large it is. See file_operations.h.

#pragma once

#include <cstdint>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// What a path names. A reparse point that is neither a symbolic link nor a junction counts as a
// file or a directory, by its directory bit. A caller that must refuse every reparse point checks
// the attribute instead.
enum class FileKind {
  none = 0,       // The query failed; the code is in FileStatus::error.
  not_found = 1,  // The query failed with a code of the not-found family.
  regular = 2,
  directory = 3,
  symlink = 4,
  junction = 10,
};

// The kind of an entry with these attributes and, where it is a reparse point, this tag.
[[nodiscard]] FileKind KindOfAttributes(std::uint32_t attributes, std::uint32_t reparse_tag);

struct FileStatus {
  FileKind kind = FileKind::none;
  std::uint32_t error = 0;  // A Win32 code; also set for not_found.
};

struct FileSize {
  std::uint64_t size = 0;  // In bytes; all ones when `error` is not 0.
  std::uint32_t error = 0;
};

// True for the not-found family: the codes that say that nothing has this path, or that a directory
// on the way to it is missing.
[[nodiscard]] bool IsNotFoundError(std::uint32_t code);

// The same without ERROR_DIRECTORY: the codes of the standard library's condition "no such file or
// directory".
[[nodiscard]] bool IsNoSuchFileOrDirectory(std::uint32_t code);

[[nodiscard]] FileStatus QueryStatus(PathView path);      // Follows links.
[[nodiscard]] FileStatus QueryLinkStatus(PathView path);  // Of the entry itself.
[[nodiscard]] FileSize QueryFileSize(PathView path);      // Follows links.

// Follows links. Throws FilesystemError "status" if the query fails with a code outside the
// not-found family.
[[nodiscard]] bool IsRegularFile(PathView path);

}  // namespace tolvarine::updater
