// The calls that list, examine and start processes.

#include "system/processes.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"
#include "simulated_windows/rights.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::CreatedProcess;
using simulated::FailCall;
using simulated::Fault;
using simulated::FileSystem;
using simulated::KernelObjects;
using simulated::Process;

namespace {

constexpr std::uint32_t kFirstCreatedId = 5000;
constexpr std::uint32_t kIdStep = 4;
constexpr std::uint64_t kFirstCreationTime = 134'100'000'000'000'000;

// The full path of a program, as the system names its image; or why it cannot be started. Any file
// counts as a program.
struct Image {
  std::uint32_t code = 0;
  std::u16string path;
};

Image OpenImage(Computer& computer, const char16_t* application) {
  // As the system opens it: nobody may be writing to the file, or have it open without sharing.
  const FileSystem::Opened opened =
      computer.files().Open({.path = application,
                             .access = simulated::kFileExecute,
                             .sharing = kFileShareRead | kFileShareDelete});
  if (opened.handle == kInvalidHandle) return {opened.code, {}};
  constexpr std::u16string_view kDrivePrefix = u"\\\\?\\";
  const auto final_path = computer.files().FinalPath(*computer.files().Find(opened.handle), false);
  computer.files().Close(opened.handle);
  const bool by_drive = final_path && final_path->at(kDrivePrefix.size() + 1) == u':';
  return {0, by_drive ? final_path->substr(kDrivePrefix.size()) : application};
}

bool IsDirectory(const Computer& computer, const char16_t* path) {
  const auto found = simulated::Resolve(computer.disks, path, simulated::LastLink::kFollow);
  return found.code == 0 && computer.files().NodeOf(found.node).IsDirectory();
}

// Whether a process that is started with these flags leaves the job of its parent.
bool LeavesJob(std::uint32_t job_limits, std::uint32_t flags) {
  const bool asks = (flags & kCreateBreakawayFromJob) != 0;
  return (job_limits & kJobObjectLimitSilentBreakawayOk) != 0 ||
         (asks && (job_limits & kJobObjectLimitBreakawayOk) != 0);
}

// The record of a new process, which has its parent's rights and, unless it leaves it, its job.
std::uint32_t AddProcess(Computer& computer, const Process& parent, std::uint32_t flags,
                         std::u16string image) {
  auto& by_id = computer.processes.by_id;
  std::uint32_t id = std::max(kFirstCreatedId, by_id.rbegin()->first / kIdStep * kIdStep + kIdStep);
  Process process{.creation_time = kFirstCreationTime + computer.clock.elapsed_ms * 10'000 + id,
                  .image = std::move(image),
                  .elevated = parent.elevated};
  if (parent.job_limits && !LeavesJob(*parent.job_limits, flags)) {
    process.job_limits = parent.job_limits;
  }
  by_id.emplace(id, std::move(process));
  return id;
}

const Fault* Enter(Call call) { return Computer::Current().calls.Enter(call); }

}  // namespace

std::uint32_t GetCurrentProcessId() { return Computer::Current().processes.own_id; }

bool K32EnumProcesses(std::uint32_t* ids, std::uint32_t capacity, std::uint32_t* count) {
  if (const Fault* fault = Enter(Call::K32EnumProcesses)) return FailCall(fault->code, false);
  Computer& computer = Computer::Current();
  *count = 0;
  for (const auto& [id, process] : computer.processes.by_id) {
    if (*count < capacity && computer.objects().IsRunning(id)) ids[(*count)++] = id;
  }
  return true;
}

bool GetExitCodeProcess(Handle process, std::uint32_t* exit_code) {
  if (const Fault* fault = Enter(Call::GetExitCodeProcess)) return FailCall(fault->code, false);
  return Computer::Current().objects().GetExitCode(process, exit_code);
}

void Sleep(std::uint32_t milliseconds) { Computer::Current().clock.elapsed_ms += milliseconds; }

bool QueryFullProcessImageNameW(Handle process, char16_t* buffer, std::uint32_t* size) {
  if (const Fault* fault = Enter(Call::QueryFullProcessImageNameW)) {
    return FailCall(fault->code, false);
  }
  const Process* const record = Computer::Current().objects().QueryProcess(process);
  if (record == nullptr) return false;
  if (record->image.size() >= *size) return FailCall(simulated::kErrorInsufficientBuffer, false);
  *std::ranges::copy(record->image, buffer).out = u'\0';
  *size = static_cast<std::uint32_t>(record->image.size());
  return true;
}

// NOLINTNEXTLINE(readability-non-const-parameter): the system may write to the command line.
bool CreateProcessW(const char16_t* application, char16_t* command_line, std::uint32_t flags,
                    const char16_t* current_directory, ProcessInformation* information) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::CreateProcessW, application)) {
    return FailCall(fault->code, false);
  }
  Image image = OpenImage(computer, application);
  if (image.code != 0) return FailCall(image.code, false);
  if (current_directory != nullptr && !IsDirectory(computer, current_directory)) {
    return FailCall(kErrorDirectory, false);
  }
  const Process* const parent = computer.objects().QueryProcess(GetCurrentProcess());
  if (parent == nullptr) return false;
  const bool asks_to_leave = (flags & kCreateBreakawayFromJob) != 0;
  if (parent->job_limits && asks_to_leave && !LeavesJob(*parent->job_limits, flags)) {
    return FailCall(kErrorAccessDenied, false);
  }
  const std::uint32_t id = AddProcess(computer, *parent, flags, std::move(image.path));
  constexpr std::uint32_t kAllAccess = kProcessQueryLimitedInformation | kSynchronize;
  KernelObjects& objects = computer.objects();
  *information = {objects.OpenProcess(kAllAccess, id), objects.OpenProcess(kSynchronize, id), id,
                  id + 1};
  const CreatedProcess created{id, application, command_line, flags,
                               current_directory == nullptr ? u"" : current_directory};
  computer.processes.created.push_back(created);
  if (computer.processes.on_create) computer.processes.on_create(created);
  return true;
}

bool IsProcessInJob(Handle process, bool* in_job) {
  if (const Fault* fault = Enter(Call::IsProcessInJob)) return FailCall(fault->code, false);
  const Process* const record = Computer::Current().objects().QueryProcess(process);
  if (record == nullptr) return false;
  *in_job = record->job_limits.has_value();
  return true;
}

bool QueryInformationJobObject(std::uint32_t* limit_flags) {
  if (const Fault* fault = Enter(Call::QueryInformationJobObject)) {
    return FailCall(fault->code, false);
  }
  const Process* const own = Computer::Current().objects().QueryProcess(GetCurrentProcess());
  if (own == nullptr) return false;
  if (!own->job_limits) return FailCall(kErrorAccessDenied, false);
  *limit_flags = *own->job_limits;
  return true;
}

bool OpenProcessToken(Handle process, Handle* token) {
  if (const Fault* fault = Enter(Call::OpenProcessToken)) return FailCall(fault->code, false);
  KernelObjects& objects = Computer::Current().objects();
  const Process* const record = objects.QueryProcess(process);
  if (record == nullptr) return false;
  *token = objects.AddToken({record->elevated});
  return true;
}

bool GetTokenInformation(Handle token, TokenElevation* elevation) {
  if (const Fault* fault = Enter(Call::GetTokenInformation)) return FailCall(fault->code, false);
  const KernelObjects::Token* const opened = Computer::Current().objects().FindToken(token);
  if (opened == nullptr) return FailCall(simulated::kErrorInvalidHandle, false);
  elevation->is_elevated = opened->elevated;
  return true;
}

}  // namespace tolvarine::updater::platform
