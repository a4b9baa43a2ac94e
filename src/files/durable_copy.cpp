#include "files/durable_copy.h"

#include <string_view>

#include "files/directories.h"
#include "files/durability.h"
#include "files/failure.h"
#include "files/read_blocks.h"
#include "files/removal.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

void RemoveStaleTemporary(const Path& extended) {
  if (platform::DeleteFileW(extended.c_str())) return;
  const std::uint32_t code = platform::GetLastError();
  if (code == platform::kErrorFileNotFound || code == platform::kErrorPathNotFound) return;
  throw SystemError(code, "Could not remove stale backup or restore temporary");
}

// The code of a failed or short write. To the system a short write is a success, so there may be no
// last error.
std::uint32_t WriteFailureCode() {
  const std::uint32_t code = platform::GetLastError();
  return code != 0 ? code : platform::kErrorWriteFault;
}

FailureCode CopyAndFlush(platform::Handle from, platform::Handle to) {
  const FailureCode failure = ReadBlocks(from, [&](std::string_view block) -> FailureCode {
    const auto size = static_cast<std::uint32_t>(block.size());
    std::uint32_t written = 0;
    if (!platform::WriteFile(to, block.data(), size, &written) || written != size) {
      return WriteFailureCode();
    }
    return std::nullopt;
  });
  if (failure) return failure;
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
  RemoveEntry(temporary);  // If this fails, so does the creation.
  FileHandle target(platform::CreateFileW(temporary.c_str(), platform::kGenericWrite,
                                          platform::kFileShareNone, platform::kCreateNew,
                                          platform::kFileAttributeNormal));
  if (!target) ThrowLastError("Could not create target temporary file");
  const FailureCode failure = CopyAndFlush(file.handle(), target.get());
  target.Reset();
  if (!failure) return;
  RemoveEntry(temporary);
  throw SystemError(*failure, "Could not copy locked release source");
}

}  // namespace tolvarine::updater
