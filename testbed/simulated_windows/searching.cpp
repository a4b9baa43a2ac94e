// Searches in directories. A search finds what was in the directory when it began.

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::platform {
namespace {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;
using simulated::Search;

Handle Begin(Call call, const char16_t* pattern, FindData* data) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(call, pattern))
    return FailCall(fault->code, kInvalidHandle);
  simulated::FileSystem::Listing listing = computer.files().List(pattern);
  if (listing.code != 0) return FailCall(listing.code, kInvalidHandle);
  *data = listing.records.front();
  return computer.files().AddSearch({std::move(listing.records), 1});
}

}  // namespace

Handle FindFirstFileW(const char16_t* pattern, FindData* data) {
  return Begin(Call::FindFirstFileW, pattern, data);
}

Handle FindFirstFileExW(const char16_t* pattern, std::uint32_t level, FindData* data,
                        std::uint32_t search, std::uint32_t flags) {
  static_cast<void>(flags);
  if (level > kFindExInfoBasic || search != kFindExSearchNameMatch) {
    return FailCall(kErrorInvalidParameter, kInvalidHandle);
  }
  return Begin(Call::FindFirstFileExW, pattern, data);
}

bool FindNextFileW(Handle find, FindData* data) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::FindNextFileW))
    return FailCall(fault->code, false);
  Search* const search = computer.files().FindSearch(find);
  if (search == nullptr) return FailCall(simulated::kErrorInvalidHandle, false);
  if (search->next == search->records.size()) return FailCall(kErrorNoMoreFiles, false);
  *data = search->records[search->next++];
  return true;
}

bool FindClose(Handle find) {
  Computer& computer = Computer::Current();
  const Fault* fault = computer.calls.Enter(Call::FindClose);
  if (computer.calls.power_is_off()) return false;
  const bool closed = computer.files().CloseSearch(find);
  if (fault != nullptr) return FailCall(fault->code, false);
  if (!closed) return FailCall(simulated::kErrorInvalidHandle, false);
  return true;
}

}  // namespace tolvarine::updater::platform
