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

}  // namespace

void VisitFileBlocks(const Path& path, const std::function<void(std::string_view)>& visit) {
  const Path extended = ExtendedLengthPath(path);
  const FileHandle file(platform::CreateFileW(
      extended.c_str(), platform::kGenericRead, platform::kFileShareAll, platform::kOpenExisting,
      platform::kFileAttributeNormal | platform::kFileFlagSequentialScan));
  if (!file) ThrowLastError();
  std::vector<char> block(kBlockSize);
  for (;;) {
    std::uint32_t read = 0;
    if (!platform::ReadFile(file.get(), block.data(), kBlockSize, &read)) ThrowLastError();
    if (read == 0) return;
    visit({block.data(), read});
  }
}

std::string ReadFileBytes(const Path& path, std::size_t limit) {
  std::string bytes;
  VisitFileBlocks(path, [&](std::string_view block) {
    bytes.append(block);
    if (bytes.size() > limit) {
      throw std::runtime_error("The file has more than " + std::to_string(limit) + " bytes");
    }
  });
  return bytes;
}

}  // namespace tolvarine::updater::application
