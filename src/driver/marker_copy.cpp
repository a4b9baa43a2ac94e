#include "driver/marker_copy.h"

#include "files/unique_handle.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

// FlushFile uses the extended form of a path. Here all calls use the path as given, so that they
// name the same file.
bool FlushTemporary(const Path& temporary) {
  const FileHandle file(platform::CreateFileW(
      temporary.c_str(), platform::kGenericRead | platform::kGenericWrite, platform::kFileShareRead,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  return file && platform::FlushFileBuffers(file.get());
}

}  // namespace

bool CopyMarkerDurably(const Path& source, const Path& destination) {
  const Path temporary = destination + u".tmp";
  platform::DeleteFileW(temporary.c_str());
  if (!platform::CopyFileW(source.c_str(), temporary.c_str(), /*fail_if_exists=*/false)) {
    return false;
  }
  const bool published =
      FlushTemporary(temporary) &&
      platform::MoveFileExW(temporary.c_str(), destination.c_str(),
                            platform::kMovefileReplaceExisting | platform::kMovefileWriteThrough);
  if (!published) platform::DeleteFileW(temporary.c_str());
  return published;
}

}  // namespace tolvarine::updater
