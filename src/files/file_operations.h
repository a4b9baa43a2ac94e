// Operations on the file system by path: status, directories, removal, enumeration, and the two
// that make something durable.
//
// Paths are handed to the platform as given. Of these operations only FlushFile and
// ReplaceFileDurably take the extended form, as does CopyFileDurably (durable_copy.h); the
// asymmetry is settled, and a path of 260 units and more reaches only those that take it. No
// directory is ever flushed: the durability of a rename rests on its write-through alone.
//
// What returns a code throws nothing: it is a Win32 code, 0 on success.

#pragma once

#include <cstdint>
#include <functional>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// What a path names. A reparse point that is neither a symbolic link nor a junction counts as what
// its directory bit says; whoever must refuse every reparse point looks at the attribute instead.
enum class FileKind {
  none = 0,       // The query failed; the code is in FileStatus::error.
  not_found = 1,  // The query failed with a code of the not-found family.
  regular = 2,
  directory = 3,
  symlink = 4,
  junction = 10,
};

struct FileStatus {
  FileKind kind = FileKind::none;
  std::uint32_t error = 0;  // For not_found, too.
};

struct FileSize {
  std::uint64_t size = 0;  // In bytes; all ones when `error` is not 0.
  std::uint32_t error = 0;
};

// The codes that mean that nothing is there, or that the way to it is not.
[[nodiscard]] bool IsNotFoundError(std::uint32_t code);

// The same without ERROR_DIRECTORY: what the generic condition "no such file or directory" takes.
[[nodiscard]] bool IsNoSuchFileOrDirectory(std::uint32_t code);

[[nodiscard]] FileStatus QueryStatus(PathView path);      // Follows links.
[[nodiscard]] FileStatus QueryLinkStatus(PathView path);  // Of the entry itself.
[[nodiscard]] FileSize QueryFileSize(PathView path);      // Follows links.

// Follows links. A query that fails for another reason than absence throws FilesystemError
// "status".
[[nodiscard]] bool IsRegularFile(PathView path);

// Makes one directory; one that is there already is success.
[[nodiscard]] std::uint32_t CreateOneDirectory(const Path& path);

// Makes a directory and its parents, from the root on. A failure on the way does not stop the walk.
// Returns 0 when the last directory was made or is there; else the last code outside the not-found
// family, or, where there was none, the last code. An empty path gives ERROR_PATH_NOT_FOUND; a root
// alone gives 0 without a look at it.
[[nodiscard]] std::uint32_t CreateDirectories(PathView path);

struct RemovalResult {
  bool removed = false;
  std::uint32_t error = 0;
};

// Removes a file, an empty directory or a link, never what a link leads to, read-only or not. A
// path that names nothing is success with nothing removed.
RemovalResult RemoveEntry(const Path& path);

struct TreeRemovalResult {
  std::uint64_t removed = 0;  // Files and directories.
  std::uint32_t error = 0;
};

// Removes a directory with all that it holds; links in it are removed and not followed. The first
// failure ends the walk, and what is gone is gone. Entries go in the order of the directory, but
// `last`, if it is one of them, goes when all others are gone. The directory itself is tried up to
// ten times. A path that names nothing is success.
[[nodiscard]] TreeRemovalResult RemoveTree(const Path& path, const Path& last = {});

// One entry of a tree, as its directory's record has it.
struct TreeEntry {
  Path path;  // The root of the walk joined with the names below it.
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;  // Valid where the attributes say that it is a reparse point.
  std::uint64_t size = 0;         // In bytes; means nothing unless it is known.
  bool size_known = false;        // Not for reparse points.
};

// The kind that a walk's record tells.
[[nodiscard]] FileKind KindOf(const TreeEntry& entry);

// Called for each entry of a walk. A code other than 0 ends the walk, and so does an exception,
// which passes through.
using EntryVisitor = std::function<std::uint32_t(const TreeEntry&)>;

// Visits what one directory holds. Returns 0 at its end, else the code that ended it, be it the
// visitor's or the enumeration's. Entries may have been visited before a failure.
[[nodiscard]] std::uint32_t EnumerateDirectory(const Path& directory, const EntryVisitor& visit);

// Visits everything below a root, each entry once, a directory before what lies in it. Links and
// junctions are visited and never entered. Returns as EnumerateDirectory does.
[[nodiscard]] std::uint32_t EnumerateTree(const Path& root, const EntryVisitor& visit);

// Puts the content and metadata of a file on stable storage, by opening it for writing. Throws
// SystemError, also for a read-only file, a directory, and a file that somebody holds for writing.
void FlushFile(PathView path);

// Renames `from` to `to`, replacing a file that is there, in one step that is durable on return.
// Throws SystemError; both then stand as they were. Nothing is retried.
void ReplaceFileDurably(PathView from, PathView to);

}  // namespace tolvarine::updater
