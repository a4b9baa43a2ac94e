// A release file that nobody can change while it is checked and installed.
//
// The staged release lies where other processes reach it. A LockedReleaseFile is an open handle
// that admits no writer and no deleter, under any name of the file, and through which the file is
// both hashed and copied: what is hashed is what is copied. At most one is alive at a time.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "files/unique_handle.h"
#include "platform/hashing.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Once constructed: a file that is neither a directory nor a reparse point of any kind, with a
// single name, which no other handle can write to or delete until this object is destroyed.
class LockedReleaseFile {
 public:
  // `path` comes from SafeJoin and is taken as given. Throws SystemError where the file cannot be
  // opened under these terms (a directory or a link to one, or a file that somebody holds for
  // writing or deleting; it is not waited for) or cannot be inspected, and std::runtime_error for
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
// the start, and is there again on return. Throws SystemError for a read or the rewind and
// std::runtime_error for the hash functions; the position may then be anywhere.
[[nodiscard]] std::string Sha256OfLockedFile(const LockedReleaseFile& file);

// True when the locked file has this size, in bytes, and this digest, as 64 lower-case digits. A
// file of another size is not read. Throws, and treats the read position, as Sha256OfLockedFile
// does.
[[nodiscard]] bool MatchesRelease(const LockedReleaseFile& file, std::uint64_t size,
                                  std::string_view sha256);

// Throws std::runtime_error "<context> (BCrypt status <status>)" for a negative status.
void ThrowIfBcryptFailed(platform::Status status, std::string_view context);

}  // namespace tolvarine::updater
