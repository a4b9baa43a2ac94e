// The restart manager, over the handles that are open on files and the images of processes.

#include "system/restart_manager.h"

#include <set>
#include <string_view>
#include <vector>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"
#include "simulated_windows/path_resolution.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::Fault;
using simulated::kErrorInvalidHandle;
using simulated::LastLink;
using simulated::NodeRef;
using simulated::Process;
using simulated::Resolve;
using simulated::Resolved;

namespace {

using Ids = std::set<std::uint32_t>;

// The files that a session asks about; null where there is no such session.
std::vector<std::u16string>* FindSession(std::uint32_t session) {
  auto& sessions = Computer::Current().objects().restart_sessions;
  const auto found = sessions.find(session);
  return found == sessions.end() ? nullptr : &found->second;
}

// A handle of another process is listed where the test names that process.
void AddHandleOwners(Computer& computer, NodeRef node, Ids* ids) {
  for (const Handle handle : computer.files().HandlesOn(node)) {
    const auto holder = computer.processes.file_holders.find(handle);
    if (holder != computer.processes.file_holders.end()) {
      ids->insert(holder->second);
    } else if (!computer.files().Find(handle)->foreign) {
      ids->insert(computer.processes.own_id);
    }
  }
}

void AddRunningImages(const Computer& computer, NodeRef node, Ids* ids) {
  for (const auto& [id, process] : computer.processes.by_id) {
    const Resolved image = Resolve(computer.disks, process.image, LastLink::kFollow);
    if (image.code == 0 && image.node == node) ids->insert(id);
  }
}

std::u16string NameOf(const Process& process) {
  if (!process.application_name.empty()) return process.application_name;
  return process.image.substr(process.image.find_last_of(u'\\') + 1);
}

std::vector<RmProcessInfo> Records(const Computer& computer, const Ids& ids) {
  std::vector<RmProcessInfo> records;
  for (const auto& [id, process] : computer.processes.by_id) {
    const bool running = Computer::Current().objects().IsRunning(id);
    if (running && ids.contains(id)) {
      records.push_back({id, process.creation_time, NameOf(process)});
    }
  }
  return records;
}

}  // namespace

std::uint32_t RmStartSession(std::uint32_t* session) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RmStartSession)) return fault->code;
  auto& sessions = computer.objects().restart_sessions;
  *session = 0;
  while (sessions.contains(*session)) ++*session;
  sessions[*session] = {};
  return kErrorSuccess;
}

std::uint32_t RmRegisterResources(std::uint32_t session, const char16_t* const* files,
                                  std::uint32_t count) {
  const std::u16string_view first = count == 0 ? u"" : files[0];
  if (const Fault* fault = Computer::Current().calls.Enter(Call::RmRegisterResources, first)) {
    return fault->code;
  }
  std::vector<std::u16string>* const registered = FindSession(session);
  if (registered == nullptr) return kErrorInvalidHandle;
  registered->insert(registered->end(), files, files + count);
  return kErrorSuccess;
}

std::uint32_t RmGetList(std::uint32_t session, std::uint32_t* needed, std::uint32_t* count,
                        RmProcessInfo* processes) {
  Computer& computer = Computer::Current();
  const std::uint32_t room = *count;
  *needed = 0;
  *count = 0;
  if (const Fault* fault = computer.calls.Enter(Call::RmGetList)) return fault->code;
  const std::vector<std::u16string>* const registered = FindSession(session);
  if (registered == nullptr) return kErrorInvalidHandle;
  Ids ids;
  for (const std::u16string& file : *registered) {
    const Resolved found = Resolve(computer.disks, file, LastLink::kFollow);
    if (found.code != 0) continue;
    if (computer.files().NodeOf(found.node).IsDirectory()) return kErrorAccessDenied;
    AddHandleOwners(computer, found.node, &ids);
    AddRunningImages(computer, found.node, &ids);
  }
  const std::vector<RmProcessInfo> records = Records(computer, ids);
  *needed = static_cast<std::uint32_t>(records.size());
  if (records.size() > room) return kErrorMoreData;
  for (const RmProcessInfo& record : records) processes[(*count)++] = record;
  return kErrorSuccess;
}

std::uint32_t RmEndSession(std::uint32_t session) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::RmEndSession)) return fault->code;
  return computer.objects().restart_sessions.erase(session) == 1 ? kErrorSuccess
                                                                 : kErrorInvalidHandle;
}

}  // namespace tolvarine::updater::platform
