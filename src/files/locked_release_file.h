// A release file that nobody can change while it is checked and installed.
//
// Other processes can reach the staged release. A LockedReleaseFile keeps the file open so that
// nobody can write to it or delete it under any of its names. The file is hashed and copied through
// the same handle, so the bytes that are hashed are the bytes that are copied.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "files/unique_handle.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// A file that is neither a directory nor any reparse point and that has a single name. No other
// handle can write to it or delete it until this object is destroyed.
class LockedReleaseFile {
 public:
  // `path` comes from SafeJoin and is handed to the platform as given. Throws SystemError if the
  // file cannot be inspected or cannot be opened this way: a directory, a link to one, or a file
  // that is open for writing or deleting, for which it does not wait. Throws std::runtime_error for
  // any other reparse point and for a file with more than one name.
  explicit LockedReleaseFile(const Path& path);

  [[nodiscard]] const Path& path() const { return path_; }
  [[nodiscard]] platform::Handle handle() const { return handle_.get(); }
  [[nodiscard]] std::int64_t size() const { return size_; }  // In bytes, as of the open.

 private:
  Path path_;
  FileHandle handle_;
  std::int64_t size_ = 0;
};

// The SHA-256 of the whole file as 64 lower-case hexadecimal digits. The read position must be at
// the start, and is at the start again on return. Throws SystemError if a read or the rewind fails
// and std::runtime_error if a hash function does; the position is then undefined.
[[nodiscard]] std::string Sha256OfLockedFile(const LockedReleaseFile& file);

// True if the locked file has this size, in bytes, and this digest, in the form above. A file of
// another size is not read. For the read position and for failures see Sha256OfLockedFile.
[[nodiscard]] bool MatchesRelease(const LockedReleaseFile& file, std::uint64_t size,
                                  std::string_view sha256);

}  // namespace tolvarine::updater
