#include <algorithm>

#include "driver/command_line.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/processes.h"
#include "release/file_bytes.h"
#include "state/request.h"
#include "system/processes.h"
#include "text/utf8.h"
#include "update/command_line_text.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

bool CanBeStarted(WorkspaceState state) {
  switch (state) {
    case WorkspaceState::Prepared:
    case WorkspaceState::BackingUp:
    case WorkspaceState::Restored:
    case WorkspaceState::Applying:
    case WorkspaceState::Restoring:
    case WorkspaceState::Committed:
      return true;
    default:
      return false;
  }
}

class Starting {
 public:
  Starting(const Installation& installation, const WorkspaceStatus& workspace)
      : installation_(installation),
        workspace_(workspace),
        paths_(PathsOf(installation, workspace.id)) {}

  // Everything that can be refused. Throws VerbFailure.
  void Examine(std::uint32_t wait_pid);
  // Makes the start durable and starts the updater. Returns its process id.
  std::uint32_t Carry(InstallationLocks& locks);

 private:
  void LoadArguments();
  void NameProcess(std::uint32_t wait_pid);
  void RestorePendingMarker() const;
  void RemoveSlotTemporaries() const;

  const Installation& installation_;
  const WorkspaceStatus& workspace_;
  UpdatePaths paths_;
  UpdaterArguments arguments_;
  ProgramCopy program_;
  std::optional<LockedReleaseFile> held_program_;
};

// --- Examining -----------------------------------------------------------------------------------

// A journal knows both lists, so that a damaged request keeps nobody from resuming.
void UseLists(const TransactionJournal& journal, UpdaterArguments& arguments) {
  arguments.source_inventory.clear();
  arguments.managed_deletions.clear();
  for (const JournalEntry& entry : journal.entries) {
    if (entry.kind == JournalEntryKind::Install) {
      arguments.source_inventory.push_back({entry.path, entry.size, entry.sha256});
    } else {
      arguments.managed_deletions.push_back(entry.path);
    }
  }
}

// The copy of the updater whose content is the one that its directory is named after.
std::optional<ProgramCopy> FindProgram(const Installation& installation) {
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

void Starting::LoadArguments() {
  const LoadedRequest loaded = LoadRequest(paths_);
  const std::optional<TransactionJournal>& journal = workspace_.report.journal;
  if (loaded.state == RecordState::Unreadable) {
    throw VerbFailure(ReasonCode::RequestDamaged,
                      "The request of the update cannot be read just now. Try again.",
                      paths_.request);
  }
  const bool sound = loaded.state == RecordState::Sound;
  const std::optional<ProgramCopy> program =
      sound ? loaded.request.updater : FindProgram(installation_);
  if ((!sound && !journal) || !program) {
    throw VerbFailure(ReasonCode::RequestDamaged,
                      "The request of the update is missing or damaged. Prepare it again.",
                      paths_.request);
  }
  program_ = *program;
  arguments_.source = sound ? loaded.request.source : paths_.stage;
  arguments_.restart = sound ? loaded.request.restart : Path(u"Tolvarine.exe");
  arguments_.source_inventory = loaded.request.inventory;
  arguments_.managed_deletions = loaded.request.deletions;
  if (journal) UseLists(*journal, arguments_);
  arguments_.target = installation_.target;
  arguments_.state_file = paths_.pending;
  arguments_.completed_file = paths_.completed;
  arguments_.installed_manifest_file = InstalledManifestOf(installation_);
  arguments_.workspace = paths_.workspace;
  arguments_.update_id = workspace_.id;
  arguments_.install_key = installation_.key;
}

// The creation time is exact: one that is rounded belongs to no process.
void Starting::NameProcess(std::uint32_t wait_pid) {
  if (wait_pid == 0) return;
  using ProcessHandle = UniqueHandle<platform::CloseHandle, platform::kNullHandle>;
  const ProcessHandle process(
      platform::OpenProcess(platform::kProcessQueryLimitedInformation, wait_pid));
  std::uint64_t creation = 0;
  std::uint64_t exit = 0;
  std::uint64_t kernel = 0;
  std::uint64_t user = 0;
  if (!process || !platform::GetProcessTimes(process.get(), &creation, &exit, &kernel, &user)) {
    const std::uint32_t code = platform::GetLastError();
    throw VerbFailure(ReasonCode::ProcessGone, "The process " + std::to_string(wait_pid) +
                                                   " cannot be inspected: " + SystemMessage(code) +
                                                   " Name a process that is running, or none.");
  }
  arguments_.wait_pid = wait_pid;
  arguments_.wait_process_created_at = creation;
  arguments_.has_wait_process_created_at = true;
}

// An updater that a job ends together with the application that it waits for is of no use.
void RefuseDeadlyJob(std::uint32_t wait_pid) {
  std::uint32_t limits = 0;
  if (wait_pid == 0 || !platform::QueryInformationJobObject(&limits)) return;
  const bool killed = (limits & platform::kJobObjectLimitKillOnJobClose) != 0;
  const bool may_leave = (limits & (platform::kJobObjectLimitBreakawayOk |
                                    platform::kJobObjectLimitSilentBreakawayOk)) != 0;
  if (!killed || may_leave) return;
  throw VerbFailure(ReasonCode::KilledWithJob,
                    "This process belongs to a job that ends all of its processes together, and "
                    "that they cannot leave. Start the update from outside of it.");
}

// An updater outlives the job of the application, where the job lets it.
std::uint32_t BreakawayFlag() {
  std::uint32_t limits = 0;
  const bool may_leave = platform::QueryInformationJobObject(&limits) &&
                         (limits & platform::kJobObjectLimitBreakawayOk) != 0;
  return may_leave ? platform::kCreateBreakawayFromJob : 0;
}

void Starting::Examine(std::uint32_t wait_pid) {
  LoadArguments();
  NameProcess(wait_pid);
  RefuseDeadlyJob(wait_pid);
  // Held from here on: what was verified is what is started.
  held_program_.emplace(program_.path);
  if (Sha256OfLockedFile(*held_program_) != program_.sha256) {
    throw VerbFailure(ReasonCode::ProgramChanged,
                      "The copy of the updater " + Quoted(program_.path) +
                          " is not what was recorded. Prepare the update again.",
                      program_.path);
  }
}

// --- Carrying out --------------------------------------------------------------------------------

// A journal can stand without its marker, which the updater needs to finish.
void Starting::RestorePendingMarker() const {
  if (workspace_.report.pending || !workspace_.report.journal) return;
  constexpr std::size_t kLimit = kEnvelopeByteLimit;
  WriteFileDurably(paths_.pending, ReadFileBytes(paths_.release, kLimit));
}

// Left by a first save that was cut off, they would make the journal corrupt to the updater.
void Starting::RemoveSlotTemporaries() const {
  if (workspace_.report.state != WorkspaceState::Prepared) return;
  for (const PathView name : {u"journal.0.new", u"journal.1.new"}) {
    const Path path = JoinPath(paths_.transaction, name);
    const std::uint32_t code = RemoveEntry(path).error;
    if (code != 0) throw FilesystemError("remove", code, path);
  }
}

std::uint32_t Starting::Carry(InstallationLocks& locks) {
  RestorePendingMarker();
  RemoveSlotTemporaries();
  WriteFileDurably(paths_.launched, "{}\n");
  std::u16string line = CommandLineOf(program_.path, arguments_);
  // The updater takes the mutex itself. S\lock stays taken until it has been started.
  locks.ReleaseMutex();
  platform::ProcessInformation process;
  if (!platform::CreateProcessW(program_.path.c_str(), line.data(), BreakawayFlag(),
                                installation_.state.c_str(), &process)) {
    const std::uint32_t code = platform::GetLastError();
    RemoveEntry(paths_.launched);
    throw VerbFailure(ReasonCode::SystemFailure,
                      "The updater could not be started: " + SystemMessage(code), program_.path);
  }
  platform::CloseHandle(process.thread);
  platform::CloseHandle(process.process);
  return process.process_id;
}

}  // namespace

StartedUpdate Start(const Installation& installation, const StartRequest& request) {
  return UnderLocks<StartedUpdate>(installation, [&](InstallationLocks& locks,
                                                     const std::vector<WorkspaceStatus>& workspaces,
                                                     StartedUpdate& started) {
    const WorkspaceStatus* const chosen =
        ChooseWorkspace(workspaces, request.id, CanBeStarted, "cannot be started", started.result);
    if (chosen == nullptr) return;
    for (const WorkspaceStatus& other : workspaces) {
      const bool unfinished = &other != chosen && IsUnfinished(other.report.state);
      if (unfinished) RefuseState(other, "is unfinished", started.result);
    }
    if (started.result.outcome != Outcome::Done) return;
    Starting starting(installation, *chosen);
    starting.Examine(request.wait_pid);
    started.process_id = starting.Carry(locks);
  });
}

}  // namespace tolvarine::updater::application
