#include "files/durable_copy.h"

#include <array>
#include <optional>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

constexpr std::uint32_t kBufferSize = 65536;

void RemoveStaleTemporary(const Path& extended) {
  if (platform::DeleteFileW(extended.c_str())) return;
  const std::uint32_t code = platform::GetLastError();
  if (code == platform::kErrorFileNotFound || code == platform::kErrorPathNotFound) return;
  throw SystemError(code, "Could not remove stale backup or restore temporary");
}

// The code of a failed or short write. A short write is a success to the system, so the last error
// may be 0.
std::uint32_t WriteFailureCode() {
  const std::uint32_t code = platform::GetLastError();
  return code != 0 ? code : platform::kErrorWriteFault;
}

// Nothing when everything is written and flushed, else the code of the failure, which may be 0.
std::optional<std::uint32_t> CopyAndFlush(platform::Handle from, platform::Handle to) {
  std::array<char, kBufferSize> buffer{};
  for (;;) {
    std::uint32_t read = 0;
    if (!platform::ReadFile(from, buffer.data(), kBufferSize, &read)) {
      return platform::GetLastError();
    }
    if (read == 0) break;
    std::uint32_t written = 0;
    if (!platform::WriteFile(to, buffer.data(), read, &written) || written != read) {
      return WriteFailureCode();
    }
  }
  if (!platform::FlushFileBuffers(to)) return platform::GetLastError();
  return std::nullopt;
}

}  // namespace

void CopyFileDurably(const Path& source, const Path& destination, const Path& temporary) {
  const std::uint32_t code = CreateDirectories(ParentPath(destination));
  if (code != 0) throw SystemError(code, "Could not create backup or restore directory");
  const Path extended_source = ExtendedLengthPath(source);
  const Path extended_temporary = ExtendedLengthPath(temporary);
  RemoveStaleTemporary(extended_temporary);
  if (!platform::CopyFileW(extended_source.c_str(), extended_temporary.c_str(),
                           /*fail_if_exists=*/false)) {
    ThrowLastError("Could not copy backup or restore temporary");
  }
  FlushFile(temporary);
  ReplaceFileDurably(temporary, destination);
}

void CopyLockedFileToTemporary(const LockedReleaseFile& file, const Path& temporary) {
  const Path parent = ParentPath(temporary);
  const std::uint32_t parent_code = CreateDirectories(parent);
  if (parent_code != 0) throw FilesystemError("create_directories", parent_code, parent);
  RemoveEntry(temporary);  // If it stays, the creation fails on it.
  FileHandle target(platform::CreateFileW(temporary.c_str(), platform::kGenericWrite,
                                          platform::kFileShareNone, platform::kCreateNew,
                                          platform::kFileAttributeNormal));
  if (!target) ThrowLastError("Could not create target temporary file");
  const std::optional<std::uint32_t> code = CopyAndFlush(file.handle(), target.get());
  target.Reset();
  if (!code) return;
  RemoveEntry(temporary);
  throw SystemError(*code, "Could not copy locked release source");
}

}  // namespace tolvarine::updater
