#include "update/preflight.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <span>

#include "driver/request_validation.h"
#include "engine/entry_temporary.h"
#include "files/canonical_path.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "lists/list_text.h"
#include "lists/release_path.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/processes.h"
#include "release/list_size.h"
#include "release/release_description.h"
#include "system/processes.h"
#include "system/restart_manager.h"
#include "system/volumes.h"
#include "text/system_error.h"
#include "text/utf8.h"
#include "update/command_line_text.h"
#include "update/registration.h"
#include "update/running_processes.h"
#include "update/sentences.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kPathLimit = 259;
constexpr std::size_t kDirectoryLimit = 247;
constexpr std::size_t kMaxPathBuffer = 32768;

using ProcessHandle = UniqueHandle<platform::CloseHandle, platform::kNullHandle>;

struct Volume {
  Path root;
  Path file_system;
  std::uint64_t free_bytes = ~std::uint64_t{0};  // All ones where it is not known.
};

class Preflight {
 public:
  explicit Preflight(const PreflightRequest& request)
      : request_(request),
        target_(request.installation.target),
        paths_(PathsOf(request.installation, request.id)) {
    for (const SourceInventoryEntry& row : request.difference.changed) files_.push_back(row.path);
    for (const Path& path : request.difference.deletions) files_.push_back(path);
  }

  Reasons Find() {
    CheckCaller();
    CheckTarget();
    CheckVolumes();
    CheckLists();
    CheckCommandLine();
    CheckRegistration();
    FindProcessesInTarget();
    for (const Path& path : files_) CheckFile(path);
    for (const Path& path : request_.difference.changed_by_others) {
      Warn(ReasonCode::ChangedFile,
           Quoted(path) + " has been changed by somebody else. The update replaces or deletes it.",
           path);
    }
    return std::move(reasons_);
  }

 private:
  void Refuse(ReasonCode code, std::string text, Path path = {}) {
    reasons_.push_back({code, std::move(text), std::move(path)});
  }
  void Warn(ReasonCode code, std::string text, Path path = {}) {
    reasons_.push_back({code, std::move(text), std::move(path), /*warning=*/true});
  }

  void CheckCaller();
  void CheckTarget();
  void CheckVolumes();
  void CheckSpace(const Volume& target, const Volume& state);
  void CheckLists();
  void CheckCommandLine();
  void CheckRegistration();
  void FindProcessesInTarget();
  void CheckFile(const Path& relative);
  void CheckName(const Path& relative);
  void CheckLength(const Path& root, const Path& relative, std::size_t suffix,
                   std::string_view where);
  bool CheckKind(const Path& relative);
  void CheckAccess(const Path& relative);

  const PreflightRequest& request_;
  const Path& target_;
  UpdatePaths paths_;
  std::vector<Path> files_;  // All that the update touches, relative.
  bool processes_in_target_ = false;
  Reasons reasons_;
};

// --- The caller and the directories --------------------------------------------------------------

void Preflight::CheckCaller() {
  platform::Handle token = platform::kNullHandle;
  if (!platform::OpenProcessToken(platform::GetCurrentProcess(), &token)) {
    return;
  }
  const ProcessHandle owner(token);
  platform::TokenElevation elevation;
  if (!platform::GetTokenInformation(token, &elevation) || !elevation.is_elevated) return;
  Refuse(ReasonCode::ElevatedCaller,
         "This process has an administrator's rights. Only installations of one user, in a place "
         "that the user can write to, are updated: start the application without these rights.");
}

void Preflight::CheckTarget() {
  const FileStatus status = QueryStatus(target_);
  if (status.kind != FileKind::directory) {
    Refuse(ReasonCode::NotADirectory,
           "The installation " + Quoted(target_) + " is not a directory that can be reached.",
           target_);
    return;
  }
  const Path probe = JoinPath(target_, u"tolvarine-update-probe");
  const FileHandle file(platform::CreateFileW(
      probe.c_str(), platform::kGenericWrite | platform::kDelete, platform::kFileShareAll,
      platform::kCreateAlways, platform::kFileAttributeNormal));
  if (!file) {
    const std::uint32_t code = platform::GetLastError();
    Refuse(ReasonCode::TargetNotWritable,
           "The installation " + Quoted(target_) + " cannot be written to: " + SystemMessage(code) +
               " Only installations that the user can write to are updated.",
           target_);
    return;
  }
  platform::SetFileInformationByHandle(file.get(),
                                       platform::FileDispositionInfo{.delete_file = true});
}

Volume VolumeOf(const Path& path) {
  Volume volume;
  volume.root.resize(kMaxPathBuffer);
  if (!platform::GetVolumePathNameW(path.c_str(), volume.root.data(), kMaxPathBuffer)) return {};
  volume.root.resize(volume.root.find(u'\0'));
  std::array<char16_t, 64> name{};
  if (platform::GetVolumeInformationW(volume.root.c_str(), name.data(), name.size(), nullptr)) {
    volume.file_system = name.data();
  }
  std::uint64_t free_bytes = 0;
  if (platform::GetDiskFreeSpaceExW(volume.root.c_str(), &free_bytes)) {
    volume.free_bytes = free_bytes;
  }
  return volume;
}

void Preflight::CheckVolumes() {
  const Volume target = VolumeOf(target_);
  const Volume state = VolumeOf(request_.installation.state);
  const auto check = [&](const Volume& volume, const char* what) {
    const std::u16string key = PathCompareKey(volume.file_system);
    if (!key.starts_with(u"fat") && key != u"exfat") return;
    Refuse(ReasonCode::UnsupportedFileSystem,
           std::string("The ") + what + " lies on a volume of the file system " +
               Utf8FromUtf16(volume.file_system) +
               ", which can lose files in a power cut. Move it to an NTFS volume.",
           volume.root);
  };
  check(target, "installation");
  if (!SamePathKey(target.root, state.root)) check(state, "state directory");
  if (!SamePathKey(target.root, state.root)) {
    Warn(ReasonCode::TwoVolumes,
         "The installation and the state directory lie on two volumes. After a power cut, a file "
         "that was deleted can be there again.");
  }
  CheckSpace(target, state);
}

// Stage, kept copies and baseline in the state directory; beside each installed file, a temporary.
void Preflight::CheckSpace(const Volume& target, const Volume& state) {
  std::uint64_t staged = 0;
  std::uint64_t largest = 0;
  for (const SourceInventoryEntry& row : request_.difference.changed) {
    staged += row.size;
    largest = std::max(largest, row.size);
  }
  std::uint64_t installed = 0;
  for (const Path& path : files_) {
    const FileSize size = QueryFileSize(JoinPath(target_, path));
    if (size.error != 0) continue;
    installed += size.size;
    largest = std::max(largest, size.size);
  }
  const bool one_volume = SamePathKey(target.root, state.root);
  const std::uint64_t in_state = staged + 2 * installed + (one_volume ? largest : 0);
  const auto check = [&](const Volume& volume, std::uint64_t needed) {
    if (needed <= volume.free_bytes) return;
    Refuse(ReasonCode::NoSpace,
           "The volume " + Quoted(volume.root) + " has " + std::to_string(volume.free_bytes) +
               " free bytes, and the update needs " + std::to_string(needed) + ". Free " +
               std::to_string(needed - volume.free_bytes) + " bytes.",
           volume.root);
  };
  check(state, in_state);
  if (!one_volume) check(target, largest);
}

// --- Lists and command line ----------------------------------------------------------------------

void Preflight::CheckLists() {
  const auto check = [&](std::size_t rows, std::size_t bytes, const char* what) {
    if (rows <= kListRowLimit && bytes <= kListTextByteLimit) return;
    Refuse(ReasonCode::ListTooLong,
           std::string("The update has too many ") + what + " for one step: " +
               std::to_string(rows) + " of " + std::to_string(kListRowLimit) + ", in a list of " +
               std::to_string(bytes) + " of " + std::to_string(kListTextByteLimit) +
               " bytes. Install the full package, then adopt.");
  };
  const Difference& difference = request_.difference;
  check(difference.changed.size(), ListSizeOf(difference.changed), "changed files");
  check(difference.deletions.size(), ListSizeOf(difference.deletions), "files to delete");
}

void Preflight::CheckRegistration() {
  const Path resumer = ProgramCopyPath(request_.installation, std::string(64, '0'), kResumerName);
  const std::size_t size = RunTextOf(resumer).size();
  if (size <= kRunTextLimit) return;
  Refuse(ReasonCode::PathTooLong,
         "The registration at logon would have " + std::to_string(size) +
             " units, and Windows takes " + std::to_string(kRunTextLimit) +
             ". Choose a shorter state directory.",
         resumer);
}

// With the wait options at their longest.
void Preflight::CheckCommandLine() {
  UpdaterArguments arguments;
  arguments.source = paths_.stage;
  arguments.target = target_;
  arguments.restart = request_.restart;
  arguments.state_file = paths_.pending;
  arguments.completed_file = paths_.completed;
  arguments.installed_manifest_file = InstalledManifestOf(request_.installation);
  arguments.workspace = paths_.workspace;
  arguments.update_id = request_.id;
  arguments.install_key = request_.installation.key;
  arguments.source_inventory = request_.difference.changed;
  arguments.managed_deletions = request_.difference.deletions;
  arguments.wait_pid = ~std::uint32_t{0};
  arguments.wait_process_created_at = ~std::uint64_t{0};
  arguments.has_wait_process_created_at = true;
  std::size_t size = 0;
  try {
    size = CommandLineOf(ProgramCopyPath(request_.installation, std::string(64, '0'), kUpdaterName),
                         arguments)
               .size() +
           1;
  } catch (const std::runtime_error&) {
    return;  // A list is too long, which has been said.
  }
  if (size <= kCommandLineLimit) return;
  Refuse(ReasonCode::CommandLineTooLong,
         "The updater's command line would have " + std::to_string(size) +
             " units, and Windows "
             "takes " +
             std::to_string(kCommandLineLimit) + ". Install the full package, then adopt.");
}

// --- Processes -----------------------------------------------------------------------------------

void Preflight::FindProcessesInTarget() {
  for (const RunningProcess& process : ProcessesRunningFrom(target_)) {
    processes_in_target_ = true;
    Warn(ReasonCode::ProcessInTarget,
         "The process " + std::to_string(process.id) + " runs from " + Quoted(process.image) +
             ". It has to end before the update can be installed.",
         process.image);
  }
  processes_in_target_ = processes_in_target_ || IsPathWithin(OwnImage(), target_);
}

// --- Each file -----------------------------------------------------------------------------------

void Preflight::CheckName(const Path& relative) {
  if (!IsReservedPath(relative)) return;
  Refuse(ReasonCode::ReservedName,
         Quoted(relative) +
             " is the updater's own log or has the ending of its temporaries. No release can hold "
             "or remove a file of this name.",
         relative);
}

void Preflight::CheckLength(const Path& root, const Path& relative, std::size_t suffix,
                            std::string_view where) {
  const Path path = JoinPath(root, relative);
  const std::size_t file = path.size() + suffix;
  const std::size_t directory = ParentPath(path).size();
  if (file <= kPathLimit && directory <= kDirectoryLimit) return;
  Refuse(ReasonCode::PathTooLong,
         Quoted(relative) + " makes a path of " + std::to_string(file) + " units in the " +
             std::string(where) + ", and Windows takes " + std::to_string(kPathLimit) + " (and " +
             std::to_string(kDirectoryLimit) +
             " for a directory). Choose a shorter state directory or installation directory.",
         relative);
}

// True for a plain file.
bool Preflight::CheckKind(const Path& relative) {
  for (Path parent = ParentPath(relative); !parent.empty(); parent = ParentPath(parent)) {
    const FileKind kind = QueryLinkStatus(JoinPath(target_, parent)).kind;
    if (kind == FileKind::directory || kind == FileKind::not_found) continue;
    Refuse(ReasonCode::WrongKind,
           Quoted(parent) + " is not a plain directory of the installation. Remove it.", parent);
    return false;
  }
  const FileKind kind = QueryLinkStatus(JoinPath(target_, relative)).kind;
  if (kind == FileKind::regular || kind == FileKind::not_found) return kind == FileKind::regular;
  Refuse(ReasonCode::WrongKind,
         Quoted(relative) + " is not a plain file of the installation. Remove it.", relative);
  return false;
}

// Who has the file open, as " by …"; empty where the system does not know.
std::string HolderOf(const Path& path) {
  std::uint32_t session = 0;
  if (platform::RmStartSession(&session) != 0) return {};
  const char16_t* const file = path.c_str();
  std::array<platform::RmProcessInfo, 8> holders;
  std::uint32_t needed = 0;
  auto count = static_cast<std::uint32_t>(holders.size());
  if (platform::RmRegisterResources(session, &file, 1) != 0 ||
      platform::RmGetList(session, &needed, &count, holders.data()) != 0) {
    count = 0;
  }
  platform::RmEndSession(session);
  std::string text;
  for (const platform::RmProcessInfo& holder : std::span(holders).first(count)) {
    text += (text.empty() ? " by " : ", ") + Quoted(holder.application_name) + " (process " +
            std::to_string(holder.process_id) + ")";
  }
  return text;
}

void Preflight::CheckAccess(const Path& relative) {
  const Path path = JoinPath(target_, relative);
  const std::uint32_t attributes = platform::GetFileAttributesW(path.c_str());
  const bool read_only = attributes != platform::kInvalidFileAttributes &&
                         (attributes & platform::kFileAttributeReadonly) != 0;
  if (read_only) {
    if (request_.clear_read_only) return;
    Refuse(ReasonCode::ReadOnlyFile,
           Quoted(relative) + " is read-only. Clear the attribute, or let prepare clear it.",
           relative);
    return;
  }
  const Path extended = ExtendedLengthPath(path);
  const FileHandle file(platform::CreateFileW(
      extended.c_str(), platform::kGenericWrite | platform::kDelete, platform::kFileShareAll,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  if (file) return;
  const std::uint32_t code = platform::GetLastError();
  if (IsNotFoundError(code)) return;
  std::string text = Quoted(relative) + " is held" + HolderOf(path) + ": " + SystemMessage(code);
  // The application's own files are held while it runs; it ends before they are replaced.
  if (processes_in_target_) {
    Warn(ReasonCode::FileHeld, text + " It has to be let go before the update.", relative);
  } else {
    Refuse(ReasonCode::FileHeld, text + " End the program that has it open.", relative);
  }
}

void Preflight::CheckFile(const Path& relative) {
  CheckName(relative);
  CheckLength(paths_.stage, relative, 0, "stage");
  CheckLength(JoinPath(paths_.transaction, u"backup"), relative, 0, "backup");
  CheckLength(target_, relative, kTemporarySuffix.size(), "installation");
  if (CheckKind(relative)) CheckAccess(relative);
}

}  // namespace

Reasons FindReasons(const PreflightRequest& request) { return Preflight(request).Find(); }

}  // namespace tolvarine::updater::application
