#include "update/launch.h"

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "lists/release_path.h"
#include "platform/error_codes.h"
#include "platform/processes.h"
#include "reasons/sentences.h"
#include "reasons/verb_failure.h"
#include "release/file_bytes.h"
#include "text/utf8.h"
#include "update/command_line_text.h"
#include "update/copying.h"
#include "update/fixed_subset.h"

namespace tolvarine::updater::application {
namespace {

// The copy of the updater whose content is the one that its directory is named after.
std::optional<ProgramCopy> FindUpdater(const Installation& installation) {
  std::optional<ProgramCopy> found;
  const auto visit = [&](const TreeEntry& entry) -> std::uint32_t {
    const Path path = JoinPath(entry.path, u"TolvarineUpdater.exe");
    if (QueryStatus(path).kind != FileKind::regular) return 0;
    std::string sha256 = Sha256OfLockedFile(LockedReleaseFile(path));
    if (Utf16FromUtf8(sha256).starts_with(LastComponent(entry.path))) {
      found = ProgramCopy{path, std::move(sha256)};
    }
    return 0;
  };
  static_cast<void>(EnumerateDirectory(JoinPath(installation.state, u"p"), visit));
  return found;
}

// The copy that was recorded, another one that is there, or else a new one of `spare`.
ProgramCopy UsableUpdater(const Installation& installation, const ProgramCopy& recorded,
                          const Path& spare) {
  const bool there = QueryLinkStatus(recorded.path).kind == FileKind::regular;
  if (there && Sha256OfLockedFile(LockedReleaseFile(recorded.path)) == recorded.sha256) {
    return recorded;
  }
  if (std::optional<ProgramCopy> found = FindUpdater(installation)) return *std::move(found);
  if (!spare.empty()) return CopyUpdater(installation, spare, nullptr);
  throw VerbFailure(ReasonCode::ProgramChanged,
                    "The copy of the updater " + Quoted(recorded.path) +
                        " has gone or has changed. Name the updater that is to be used.",
                    recorded.path);
}

// An updater outlives the job of the application, where the job lets it.
std::uint32_t BreakawayFlag() {
  std::uint32_t limits = 0;
  const bool may_leave = platform::QueryInformationJobObject(&limits) &&
                         (limits & platform::kJobObjectLimitBreakawayOk) != 0;
  return may_leave ? platform::kCreateBreakawayFromJob : 0;
}

}  // namespace

WaitedProcess InspectProcess(std::uint32_t id) {
  if (id == 0) return {};
  using ProcessHandle = UniqueHandle<platform::CloseHandle, platform::kNullHandle>;
  const ProcessHandle process(platform::OpenProcess(platform::kProcessQueryLimitedInformation, id));
  std::uint64_t creation = 0;
  std::uint64_t exit = 0;
  std::uint64_t kernel = 0;
  std::uint64_t user = 0;
  if (!process || !platform::GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) {
    const std::uint32_t code = platform::GetLastError();
    throw VerbFailure(ReasonCode::ProcessGone, "The process " + std::to_string(id) +
                                                   " cannot be inspected: " + SystemMessage(code) +
                                                   " Name a process that is running, or none.");
  }
  return {id, creation};
}

HeldProgram::HeldProgram(ProgramCopy program) : program_(std::move(program)), file_(program_.path) {
  if (Sha256OfLockedFile(file_) == program_.sha256) return;
  throw VerbFailure(ReasonCode::ProgramChanged,
                    "The program " + Quoted(program_.path) +
                        " is not what was recorded. Prepare the update again.",
                    program_.path);
}

platform::ProcessInformation HeldProgram::Start(const Installation& installation,
                                                std::u16string command_line) const {
  platform::ProcessInformation process;
  if (!platform::CreateProcessW(program_.path.c_str(), command_line.data(), BreakawayFlag(),
                                installation.state.c_str(), &process)) {
    throw VerbFailure(ReasonCode::SystemFailure,
                      "The program " + Quoted(program_.path) +
                          " could not be started: " + SystemMessage(platform::GetLastError()),
                      program_.path);
  }
  return process;
}

UpdaterLaunch::UpdaterLaunch(const Installation& installation, const WorkspaceStatus& workspace,
                             const Path& updater)
    : installation_(installation),
      workspace_(workspace),
      paths_(PathsOf(installation, workspace.id)) {
  LoadedRequest loaded = LoadRequest(paths_);
  if (loaded.state == RecordState::Unreadable) {
    throw VerbFailure(ReasonCode::RequestDamaged,
                      "The request of the update cannot be read just now. Try again.",
                      paths_.request);
  }
  const std::optional<TransactionJournal>& journal = workspace.report.journal;
  const bool sound = loaded.state == RecordState::Sound;
  if (!sound && !journal) {
    throw VerbFailure(ReasonCode::RequestDamaged,
                      "The request of the update is missing or damaged. Prepare it again.",
                      paths_.request);
  }
  request_ = std::move(loaded.request);
  request_.updater = UsableUpdater(installation, request_.updater, updater);
  if (!sound) request_.source = paths_.stage;
  if (!sound) request_.restart = kApplicationPath;
  // A journal knows both lists, so that a damaged request keeps nobody from resuming.
  if (std::optional<FixedSubset> subset = FixedSubsetOf(paths_, workspace.report)) {
    request_.inventory = std::move(subset->inventory);
    request_.deletions = std::move(subset->deletions);
  }
}

// --- Putting right -------------------------------------------------------------------------------

// A journal can stand without its marker, which the updater needs to finish.
void UpdaterLaunch::RestorePendingMarker() const {
  if (workspace_.report.pending || !workspace_.report.journal) return;
  // A rollback needs no marker, whatever has become of the release.
  const bool needed = workspace_.report.state != WorkspaceState::Restoring;
  try {
    const VerifiedRelease release = ReadReleaseOfUpdate(paths_.release, workspace_.id);
    WriteFileDurably(paths_.pending, release.envelope);
  } catch (const UnsoundRelease&) {
    if (needed) throw;
  } catch (const SystemError& failure) {
    if (needed || !IsNotFoundError(failure.code())) throw;
  }
}

// Left by a first save that was cut off, they would make the journal corrupt to the updater.
void UpdaterLaunch::RemoveSlotTemporaries() const {
  if (workspace_.report.state != WorkspaceState::Prepared) return;
  for (const PathView name : {u"journal.0.new", u"journal.1.new"}) {
    const Path path = JoinPath(paths_.transaction, name);
    const std::uint32_t code = RemoveEntry(path).error;
    if (code != 0) throw FilesystemError("remove", code, path);
  }
}

// The updater begins with no source that lacks the application. With any file of that name it
// refuses the tree, and restores the baseline.
void UpdaterLaunch::RestoreStage() const {
  const WorkspaceState state = workspace_.report.state;
  const bool not_whole = state == WorkspaceState::Applying || state == WorkspaceState::Restoring ||
                         state == WorkspaceState::Committed;
  const Path application = JoinPath(request_.source, kApplicationPath);
  if (!not_whole || QueryLinkStatus(application).kind == FileKind::regular) return;
  try {
    const bool has_package = !request_.package.empty() && request_.source == paths_.stage;
    if (has_package) {
      static_cast<void>(StageRelease(paths_, request_.package, request_.inventory, {}));
    }
  } catch (const std::exception&) {
    // The package has gone, too, or is another one.
  }
  if (QueryLinkStatus(application).kind == FileKind::regular) return;
  WriteFileDurably(application, "The staged release has gone.\n");
}

void UpdaterLaunch::PutRight() const {
  RestorePendingMarker();
  RemoveSlotTemporaries();
  RestoreStage();
}

platform::ProcessInformation UpdaterLaunch::Start(InstallationLocks& locks,
                                                  const WaitedProcess& waited) const {
  const HeldProgram program(request_.updater);
  UpdaterArguments arguments;
  arguments.source = request_.source;
  arguments.target = installation_.target;
  arguments.restart = request_.restart;
  arguments.state_file = paths_.pending;
  arguments.completed_file = paths_.completed;
  arguments.installed_manifest_file = InstalledManifestOf(installation_);
  arguments.workspace = paths_.workspace;
  arguments.update_id = workspace_.id;
  arguments.install_key = installation_.key;
  arguments.source_inventory = request_.inventory;
  arguments.managed_deletions = request_.deletions;
  arguments.wait_pid = waited.id;
  arguments.wait_process_created_at = waited.created_at;
  arguments.has_wait_process_created_at = waited.id != 0;
  std::u16string line = CommandLineOf(request_.updater.path, arguments);
  locks.ReleaseMutex();  // The updater takes it itself.
  return program.Start(installation_, std::move(line));
}

}  // namespace tolvarine::updater::application
