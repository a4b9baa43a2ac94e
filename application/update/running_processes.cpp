#include "update/running_processes.h"

#include <algorithm>

#include "files/canonical_path.h"
#include "files/unique_handle.h"
#include "platform/processes.h"
#include "system/processes.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kMaxPathBuffer = 32768;

using ProcessHandle = UniqueHandle<platform::CloseHandle, platform::kNullHandle>;

// Empty on failure.
Path ImageOf(platform::Handle process) {
  Path image(kMaxPathBuffer, u'\0');
  auto size = static_cast<std::uint32_t>(image.size());
  if (!platform::QueryFullProcessImageNameW(process, image.data(), &size)) return {};
  image.resize(size);
  return image;
}

}  // namespace

std::vector<RunningProcess> ProcessesRunningFrom(const Path& directory) {
  constexpr std::uint32_t kMostProcesses = 16384;
  std::vector<std::uint32_t> ids(kMostProcesses);
  std::uint32_t count = 0;
  if (!platform::K32EnumProcesses(ids.data(), kMostProcesses, &count)) return {};
  ids.resize(std::min(count, kMostProcesses));
  std::vector<RunningProcess> running;
  for (const std::uint32_t id : ids) {
    if (id == platform::GetCurrentProcessId()) continue;
    const ProcessHandle process(
        platform::OpenProcess(platform::kProcessQueryLimitedInformation, id));
    if (!process) continue;
    Path image = ImageOf(process.get());
    if (!image.empty() && IsPathWithin(image, directory)) running.push_back({id, std::move(image)});
  }
  return running;
}

Path OwnImage() {
  Path image = ImageOf(platform::GetCurrentProcess());
  if (image.empty()) ThrowLastError();
  return image;
}

}  // namespace tolvarine::updater::application
