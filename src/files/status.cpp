#include "files/status.h"

#include <algorithm>
#include <array>

#include "files/failure.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

enum class Links { kFollow, kDoNotFollow };

// The result of a query; the rest is valid if `error` is 0.
struct EntryData {
  std::uint32_t error = 0;
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
  std::uint64_t size = 0;
};

EntryData LastErrorData() { return {.error = platform::GetLastError()}; }

// Reads the entry's attributes and size without opening it. The system refuses them for some files
// in use, such as its paging file; their directory still has them.
EntryData QueryRecord(const Path& path) {
  platform::FileAttributeData data;
  if (platform::GetFileAttributesExW(path.c_str(), &data)) {
    return {.attributes = data.attributes, .size = data.size};
  }
  if (platform::GetLastError() != platform::kErrorSharingViolation) return LastErrorData();
  platform::FindData found;
  const FindHandle search(platform::FindFirstFileW(path.c_str(), &found));
  if (!search) return LastErrorData();
  return {.attributes = found.attributes, .size = found.size};
}

// Opens a reparse point, or what it resolves to, and reads attributes, tag and size.
EntryData QueryByHandle(const Path& path, Links links) {
  const std::uint32_t flags =
      platform::kFileFlagBackupSemantics |
      (links == Links::kDoNotFollow ? platform::kFileFlagOpenReparsePoint : 0);
  const FileHandle file(platform::CreateFile2(path.c_str(), platform::kFileReadAttributes,
                                              platform::kFileShareAll, platform::kOpenExisting,
                                              flags));
  if (!file) return LastErrorData();
  platform::FileBasicInfo basic;
  if (!platform::GetFileInformationByHandleEx(file.get(), &basic)) return LastErrorData();
  EntryData data{.attributes = basic.attributes};
  if ((basic.attributes & platform::kFileAttributeReparsePoint) != 0) {
    platform::FileAttributeTagInfo tag;
    if (!platform::GetFileInformationByHandleEx(file.get(), &tag)) return LastErrorData();
    data.reparse_tag = tag.reparse_tag;
  }
  platform::FileStandardInfo standard;
  if (!platform::GetFileInformationByHandleEx(file.get(), &standard)) return LastErrorData();
  data.size = static_cast<std::uint64_t>(standard.end_of_file);
  return data;
}

EntryData Query(PathView path, Links links) {
  const Path text(path);
  const EntryData record = QueryRecord(text);
  const bool reparse_point = (record.attributes & platform::kFileAttributeReparsePoint) != 0;
  return record.error == 0 && reparse_point ? QueryByHandle(text, links) : record;
}

FileStatus StatusOf(const EntryData& data) {
  if (data.error == 0) return {KindOfAttributes(data.attributes, data.reparse_tag), 0};
  return {IsNotFoundError(data.error) ? FileKind::not_found : FileKind::none, data.error};
}

}  // namespace

FileKind KindOfAttributes(std::uint32_t attributes, std::uint32_t reparse_tag) {
  if ((attributes & platform::kFileAttributeReparsePoint) != 0) {
    if (reparse_tag == platform::kIoReparseTagSymlink) return FileKind::symlink;
    if (reparse_tag == platform::kIoReparseTagMountPoint) return FileKind::junction;
  }
  const bool directory = (attributes & platform::kFileAttributeDirectory) != 0;
  return directory ? FileKind::directory : FileKind::regular;
}

bool IsNoSuchFileOrDirectory(std::uint32_t code) {
  static constexpr std::array kCodes = {
      platform::kErrorFileNotFound,   platform::kErrorPathNotFound, platform::kErrorBadNetPath,
      platform::kErrorNetNameDeleted, platform::kErrorInvalidName,  platform::kErrorBadPathname};
  return std::ranges::find(kCodes, code) != kCodes.end();
}

bool IsNotFoundError(std::uint32_t code) {
  return code == platform::kErrorDirectory || IsNoSuchFileOrDirectory(code);
}

FileStatus QueryStatus(PathView path) { return StatusOf(Query(path, Links::kFollow)); }

FileStatus QueryLinkStatus(PathView path) { return StatusOf(Query(path, Links::kDoNotFollow)); }

FileSize QueryFileSize(PathView path) {
  const EntryData data = Query(path, Links::kFollow);
  return data.error == 0 ? FileSize{data.size, 0} : FileSize{~std::uint64_t{0}, data.error};
}

bool IsRegularFile(PathView path) {
  const FileStatus status = QueryStatus(path);
  if (status.kind == FileKind::none) throw FilesystemError("status", status.error, path);
  return status.kind == FileKind::regular;
}

}  // namespace tolvarine::updater
