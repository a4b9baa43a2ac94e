// Searches in directories. A search sees the directory as it was when it began.

#include <map>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/simulated/answers.h"
#include "platform/simulated/file_system.h"
#include "platform/simulated/world.h"

namespace tolvarine::updater::platform {
namespace {

using simulated::Call;
using simulated::Fail;
using simulated::Fault;
using simulated::Search;
using simulated::World;

Handle Begin(Call call, const char16_t* pattern, FindData* data) {
  World& world = World::Current();
  if (const Fault* fault = world.Enter(call, pattern)) return Fail(fault->code, kInvalidHandle);
  simulated::FileSystem::Listing listing = world.files().List(pattern);
  if (listing.code != 0) return Fail(listing.code, kInvalidHandle);
  *data = listing.records.front();
  return world.files().AddSearch({std::move(listing.records), 1});
}

}  // namespace

Handle FindFirstFileW(const char16_t* pattern, FindData* data) {
  return Begin(Call::FindFirstFileW, pattern, data);
}

Handle FindFirstFileExW(const char16_t* pattern, std::uint32_t level, FindData* data,
                        std::uint32_t search, std::uint32_t flags) {
  static_cast<void>(flags);
  if (level > kFindExInfoBasic || search != kFindExSearchNameMatch) {
    return Fail(kErrorInvalidParameter, kInvalidHandle);
  }
  return Begin(Call::FindFirstFileExW, pattern, data);
}

bool FindNextFileW(Handle find, FindData* data) {
  World& world = World::Current();
  if (const Fault* fault = world.Enter(Call::FindNextFileW)) return Fail(fault->code, false);
  Search* const search = world.files().FindSearch(find);
  if (search == nullptr) return Fail(simulated::kErrorInvalidHandle, false);
  if (search->next == search->records.size()) return Fail(kErrorNoMoreFiles, false);
  *data = search->records[search->next++];
  return true;
}

bool FindClose(Handle find) {
  World& world = World::Current();
  const Fault* fault = world.Enter(Call::FindClose);
  if (world.dead()) return false;
  const bool closed = world.files().CloseSearch(find);
  if (fault != nullptr) return Fail(fault->code, false);
  if (!closed) return Fail(simulated::kErrorInvalidHandle, false);
  return true;
}

}  // namespace tolvarine::updater::platform
