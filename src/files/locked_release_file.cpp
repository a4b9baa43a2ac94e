#include "files/locked_release_file.h"

#include <array>

#include "files/failure.h"
#include "files/read_blocks.h"
#include "files/sha256.h"
#include "platform/files.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr std::string_view kCannotHash = "Could not hash release source";

FileHandle OpenLocked(const Path& path) {
  FileHandle file(platform::CreateFileW(
      path.c_str(), platform::kGenericRead, platform::kFileShareRead, platform::kOpenExisting,
      platform::kFileFlagSequentialScan | platform::kFileFlagOpenReparsePoint |
          platform::kFileAttributeNormal));
  if (!file) ThrowLastError("Could not lock release source");
  return file;
}

void RefuseUnlessPlainFile(const FileHandle& file, const Path& path) {
  constexpr std::uint32_t kRefused =
      platform::kFileAttributeReparsePoint | platform::kFileAttributeDirectory;
  platform::FileAttributeTagInfo tag;
  if (!platform::GetFileInformationByHandleEx(file.get(), &tag)) {
    ThrowLastError("Could not inspect release source");
  }
  if ((tag.attributes & kRefused) != 0) {
    ThrowAboutPath("Release source is not a regular non-reparse file: ", path);
  }
}

void RefuseUnlessSingleName(const FileHandle& file, const Path& path) {
  platform::ByHandleFileInformation information;
  if (!platform::GetFileInformationByHandle(file.get(), &information)) {
    ThrowLastError("Could not inspect release source links");
  }
  if (information.number_of_links != 1) {
    ThrowAboutPath("Release source file has multiple hard links: ", path);
  }
}

std::int64_t ReadSize(const FileHandle& file) {
  std::int64_t size = 0;
  if (!platform::GetFileSizeEx(file.get(), &size) || size < 0) {
    ThrowLastError("Could not read release source size");
  }
  return size;
}

}  // namespace

LockedReleaseFile::LockedReleaseFile(const Path& path) : path_(path), handle_(OpenLocked(path)) {
  RefuseUnlessPlainFile(handle_, path_);
  RefuseUnlessSingleName(handle_, path_);
  size_ = ReadSize(handle_);
}

std::string Sha256OfLockedFile(const LockedReleaseFile& file) {
  Sha256 sha256;
  sha256.Begin();
  const FailureCode failure = ReadBlocks(file.handle(), [&](std::string_view block) -> FailureCode {
    sha256.Add(block);
    return std::nullopt;
  });
  if (failure) throw SystemError(*failure, kCannotHash);
  const std::array<char, kSha256Size> digest = sha256.Finish();
  if (!platform::SetFilePointerEx(file.handle(), 0, platform::kFileBegin)) {
    ThrowLastError("Could not rewind release source");
  }
  return EncodeHex({digest.data(), digest.size()});
}

bool MatchesRelease(const LockedReleaseFile& file, std::uint64_t size, std::string_view sha256) {
  return static_cast<std::uint64_t>(file.size()) == size && Sha256OfLockedFile(file) == sha256;
}

}  // namespace tolvarine::updater
