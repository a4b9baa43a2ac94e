#include "files/durability.h"

#include <cstdint>

#include "files/failure.h"
#include "files/unique_handle.h"
#include "platform/files.h"

namespace tolvarine::updater {

void FlushFile(PathView path) {
  const Path extended = ExtendedLengthPath(path);
  FileHandle file(platform::CreateFileW(
      extended.c_str(), platform::kGenericRead | platform::kGenericWrite, platform::kFileShareRead,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  if (!file) ThrowLastError();
  const bool flushed = platform::FlushFileBuffers(file.get());
  const std::uint32_t code = platform::GetLastError();
  file.Reset();  // Before the message for the code is asked for.
  if (!flushed) throw SystemError(code);
}

void ReplaceFileDurably(PathView from, PathView to) {
  const Path extended_from = ExtendedLengthPath(from);
  const Path extended_to = ExtendedLengthPath(to);
  if (!platform::MoveFileExW(
          extended_from.c_str(), extended_to.c_str(),
          platform::kMovefileReplaceExisting | platform::kMovefileWriteThrough)) {
    ThrowLastError();
  }
}

}  // namespace tolvarine::updater
