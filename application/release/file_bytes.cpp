#include "release/file_bytes.h"

#include <cstdint>
#include <stdexcept>
#include <vector>

#include "files/unique_handle.h"
#include "platform/files.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::uint32_t kBlockSize = 65536;

FileHandle OpenShared(const Path& path) {
  const Path extended = ExtendedLengthPath(path);
  FileHandle file(platform::CreateFileW(
      extended.c_str(), platform::kGenericRead, platform::kFileShareAll, platform::kOpenExisting,
      platform::kFileAttributeNormal | platform::kFileFlagSequentialScan));
  if (!file) ThrowLastError();
  return file;
}

void VisitBlocks(const FileHandle& file, const std::function<void(std::string_view)>& visit) {
  std::vector<char> block(kBlockSize);
  for (;;) {
    std::uint32_t read = 0;
    if (!platform::ReadFile(file.get(), block.data(), kBlockSize, &read)) ThrowLastError();
    if (read == 0) return;
    visit({block.data(), read});
  }
}

}  // namespace

void VisitFileBlocks(const Path& path, const std::function<void(std::string_view)>& visit) {
  VisitBlocks(OpenShared(path), visit);
}

std::string ReadFileBytes(const Path& path, std::size_t limit) {
  const auto require = [&](std::uint64_t size) {
    if (size > limit) {
      throw std::runtime_error("The file has more than " + std::to_string(limit) + " bytes.");
    }
  };
  const FileHandle file = OpenShared(path);
  std::int64_t size = 0;
  if (!platform::GetFileSizeEx(file.get(), &size)) ThrowLastError();
  require(static_cast<std::uint64_t>(size));
  std::string bytes;
  bytes.reserve(static_cast<std::size_t>(size));
  // The file may grow meanwhile.
  VisitBlocks(file, [&](std::string_view block) {
    require(bytes.size() + block.size());
    bytes.append(block);
  });
  return bytes;
}

}  // namespace tolvarine::updater::application
