#include "resume/resumer.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

#include "driver/main_sequence.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "lists/release_path.h"
#include "platform/handles.h"
#include "platform/shell.h"
#include "resume/resume_boxes.h"
#include "state/ledger.h"
#include "state/request.h"
#include "system/processes.h"
#include "text/system_error.h"
#include "update/finish.h"
#include "update/installed_release.h"
#include "update/launch.h"
#include "update/prepare.h"
#include "update/running_processes.h"
#include "update/sentences.h"
#include "update/session.h"

namespace tolvarine::updater::application {
namespace {

using ProcessHandle = UniqueHandle<platform::CloseHandle, platform::kNullHandle>;

// All in milliseconds.
constexpr std::uint32_t kPatienceForProcesses = 60'000;
constexpr std::uint32_t kPatienceForLocks = 10'000;
constexpr std::uint32_t kPatienceForReading = 30'000;
constexpr std::uint32_t kPause = 250;

// How one updater has ended, and where the update stood then.
struct Attempt {
  std::u16string id;
  WorkspaceState state{};
  std::uint32_t exit_code = 0;
  std::uint64_t counted = 0;  // Entries of the phase.

  bool operator==(const Attempt&) const = default;
};

std::uint64_t CountedEntries(const std::optional<TransactionJournal>& journal) {
  return journal ? journal->backup + journal->apply + journal->rollback : 0;
}

bool IsWhole(const std::vector<WorkspaceStatus>& workspaces) {
  return std::ranges::none_of(
      workspaces, [](const WorkspaceStatus& one) { return IsUnfinished(one.report.state); });
}

// The exit codes of an updater that has come to its own end.
bool IsOrderlyEnd(std::uint32_t exit_code) {
  constexpr std::uint32_t kLastCode = 7;
  return exit_code <= kLastCode;
}

class Supervisor {
 public:
  Supervisor(Installation installation, InstallationLocks locks, const ResumeArguments& arguments)
      : installation_(std::move(installation)),
        locks_(std::move(locks)),
        arguments_(arguments),
        asked_for_(!arguments.update_id.empty()) {}

  ResumeResult Run();

 private:
  // The next update that an updater is to be started for; null where there is none.
  [[nodiscard]] const WorkspaceStatus* ChooseNext() const;
  [[nodiscard]] const WorkspaceStatus* FindUnreadable() const;
  [[nodiscard]] bool AwaitReadable();
  [[nodiscard]] bool AwaitProcesses() const;
  [[nodiscard]] Attempt RunUpdaterOf(const WorkspaceStatus& workspace);
  [[nodiscard]] bool GoesOnAfter(const Attempt& attempt);
  void EndAsked(const Attempt& attempt);
  [[nodiscard]] bool Settle();
  [[nodiscard]] bool PrepareAgain(const WorkspaceStatus& workspace);
  void StartApplication() const;
  ResumeResult End(ResumeResult result) const;

  Installation installation_;
  InstallationLocks locks_;
  ResumeArguments arguments_;
  bool asked_for_;  // The update that was named has not been tried yet.
  std::vector<WorkspaceStatus> workspaces_;
  std::optional<Attempt> previous_;
  Path restart_{kApplicationPath};
  bool wants_application_ = false;
  bool prepared_again_ = false;
};

// --- What comes next -----------------------------------------------------------------------------

const WorkspaceStatus* Supervisor::ChooseNext() const {
  const auto is_due = [&](const WorkspaceStatus& workspace) {
    const bool named = asked_for_ && workspace.id == arguments_.update_id;
    switch (workspace.report.state) {
      case WorkspaceState::Applying:
      case WorkspaceState::Restoring:
      case WorkspaceState::Committed:
        return true;
      case WorkspaceState::Prepared:
      case WorkspaceState::BackingUp:
        return named || workspace.report.launched;
      case WorkspaceState::Restored:
        return named;
      default:
        return false;
    }
  };
  // One that leaves the installation mixed comes before any other.
  const auto unfinished = std::ranges::find_if(workspaces_, [&](const WorkspaceStatus& one) {
    return IsUnfinished(one.report.state) && is_due(one);
  });
  if (unfinished != workspaces_.end()) return &*unfinished;
  const auto due = std::ranges::find_if(workspaces_, is_due);
  return due == workspaces_.end() ? nullptr : &*due;
}

// The first update that nothing can be done about here.
const WorkspaceStatus* FindStuck(const std::vector<WorkspaceStatus>& workspaces) {
  const auto found = std::ranges::find_if(workspaces, [](const WorkspaceStatus& one) {
    return one.report.state == WorkspaceState::Unreadable ||
           one.report.state == WorkspaceState::Damaged ||
           one.report.state == WorkspaceState::Foreign;
  });
  return found == workspaces.end() ? nullptr : &*found;
}

// What cannot be opened just now is often a file that a scanner holds for a moment.
bool Supervisor::AwaitReadable() {
  for (std::uint32_t waited = 0;; waited += kPause) {
    workspaces_ = ReadWorkspaces(installation_);
    const bool readable = std::ranges::none_of(workspaces_, [](const WorkspaceStatus& one) {
      return one.report.state == WorkspaceState::Unreadable;
    });
    if (readable || waited >= kPatienceForReading) return readable;
    platform::Sleep(kPause);
  }
}

// False where a person wants the update to wait.
bool Supervisor::AwaitProcesses() const {
  for (;;) {
    std::vector<RunningProcess> running = ProcessesRunningFrom(installation_.target);
    for (std::uint32_t waited = 0; !running.empty() && waited < kPatienceForProcesses;
         waited += kPause) {
      platform::Sleep(kPause);
      running = ProcessesRunningFrom(installation_.target);
    }
    if (running.empty()) return true;
    if (!AskToEndProcesses(running)) return false;
  }
}

// --- One updater ---------------------------------------------------------------------------------

Attempt Supervisor::RunUpdaterOf(const WorkspaceStatus& workspace) {
  const UpdaterLaunch launch(installation_, workspace);
  restart_ = launch.request().restart;
  launch.PutRight();
  const bool named = workspace.id == arguments_.update_id;
  const WaitedProcess waited =
      named && asked_for_ ? WaitedProcess{arguments_.wait_pid, arguments_.wait_process_created_at}
                          : WaitedProcess{};
  asked_for_ = asked_for_ && !named;
  const platform::ProcessInformation started = launch.Start(locks_, waited);
  const ProcessHandle process(started.process);
  const ProcessHandle thread(started.thread);
  std::uint32_t exit_code = 0;
  if (platform::WaitForSingleObject(process.get(), platform::kInfinite) != platform::kWaitObject0 ||
      !platform::GetExitCodeProcess(process.get(), &exit_code)) {
    ThrowLastError();
  }
  // Where another updater has it, that one was at work.
  if (!locks_.TakeMutexAgain(installation_, kPatienceForLocks)) {
    return {workspace.id, WorkspaceState::Unreadable, exit_code, 0};
  }
  const WorkspaceReport report = ReadWorkspace(PathsOf(installation_, workspace.id));
  return {workspace.id, report.state, exit_code, CountedEntries(report.journal)};
}

// The run has ended without an installation: nothing is started for it again until it is asked for.
void Supervisor::EndAsked(const Attempt& attempt) {
  if (attempt.state == WorkspaceState::Restored) {
    NoteResult(installation_, attempt.id, "restored");
  }
  RemoveEntry(PathsOf(installation_, attempt.id).launched);
  const auto still_running = static_cast<std::uint32_t>(ExitCode::ApplicationRunning);
  wants_application_ = attempt.exit_code != still_running;
}

// False where the same has happened twice.
bool Supervisor::GoesOnAfter(const Attempt& attempt) {
  const bool again = previous_ == attempt;
  previous_ = attempt;
  switch (attempt.state) {
    case WorkspaceState::Installed:
      // The updater starts the application, but for this one failure.
      wants_application_ = attempt.exit_code == static_cast<std::uint32_t>(ExitCode::RestartFailed);
      return true;
    case WorkspaceState::Restored:
      EndAsked(attempt);
      return true;
    case WorkspaceState::Prepared:
    case WorkspaceState::BackingUp:
      // With 0, another updater was at work; without an orderly end, this one was killed.
      if (attempt.exit_code != 0 && IsOrderlyEnd(attempt.exit_code)) {
        EndAsked(attempt);
        return true;
      }
      return !again;
    default:
      return !again;
  }
}

// --- What has ended ------------------------------------------------------------------------------

// The package may have gone: the installation then stays as it is, and a full package mends it.
bool Supervisor::PrepareAgain(const WorkspaceStatus& workspace) {
  const UpdatePaths paths = PathsOf(installation_, workspace.id);
  const LoadedRequest request = LoadRequest(paths);
  if (prepared_again_ || request.state != RecordState::Sound || request.request.package.empty()) {
    return false;
  }
  prepared_again_ = true;
  const VerifiedRelease release = ReadReleaseOfUpdate(paths.completed, workspace.id);
  const PreparedUpdate prepared =
      PrepareUnderLocks(installation_,
                        {.package = request.request.package,
                         .release = release,
                         .restart = request.request.restart,
                         .updater = request.request.updater.path,
                         .resumer = request.request.resumer.path,
                         .accepted_sequence = release.description.sequence},
                        release, workspaces_);
  if (prepared.result.outcome != Outcome::Done) return false;
  WriteFileDurably(paths.launched, "{}\n");
  return true;
}

// True where there is an updater to be started once more.
bool Supervisor::Settle() {
  for (const WorkspaceStatus& workspace : workspaces_) {
    if (workspace.report.state != WorkspaceState::Installed) continue;
    const VerifiedRelease release =
        ReadReleaseOfUpdate(PathsOf(installation_, workspace.id).completed, workspace.id);
    Path different;
    const bool holds = HoldsRelease(installation_.target, release.description, {}, different);
    if (!holds && PrepareAgain(workspace)) return true;
  }
  static_cast<void>(FinishUnderLocks(installation_, workspaces_, {}));
  return false;
}

void Supervisor::StartApplication() const {
  const Path file = IsAbsolutePath(restart_) ? restart_ : JoinPath(installation_.target, restart_);
  constexpr std::intptr_t kLastShellError = 32;
  if (platform::ShellExecuteW(u"open", file.c_str(), installation_.target.c_str(),
                              platform::kShowNormal) > kLastShellError) {
    return;
  }
  ShowProblem("The application could not be started: " + Quoted(file) + ".");
}

ResumeResult Supervisor::End(ResumeResult result) const {
  if (wants_application_ && IsWhole(workspaces_)) StartApplication();
  return result;
}

ResumeResult Supervisor::Run() {
  wants_application_ = arguments_.start_application;
  for (;;) {
    const bool readable = AwaitReadable();
    const WorkspaceStatus* const stuck = FindStuck(workspaces_);
    if (!readable || stuck != nullptr) {
      ShowStuckUpdate(*stuck, {});
      return ResumeResult::Stuck;
    }
    const WorkspaceStatus* const next = ChooseNext();
    if (next == nullptr) {
      if (Settle()) continue;
      return End(ResumeResult::Done);
    }
    if (next->report.state != WorkspaceState::Committed && !AwaitProcesses()) {
      return ResumeResult::Postponed;
    }
    const Attempt attempt = RunUpdaterOf(*next);
    if (GoesOnAfter(attempt)) continue;
    workspaces_ = ReadWorkspaces(installation_);
    const auto failed = std::ranges::find(workspaces_, attempt.id, &WorkspaceStatus::id);
    if (failed != workspaces_.end()) {
      ShowStuckUpdate(*failed, "The update has failed twice in the same way.");
    }
    wants_application_ = true;
    return End(ResumeResult::Stuck);
  }
}

// --- The beginning -------------------------------------------------------------------------------

// The target that a state directory belongs to; empty where nothing there names one.
Path FindTarget(const Installation& located) {
  for (const std::u16string& id : WorkspacesOf(located)) {
    const UpdatePaths paths = PathsOf(located, id);
    const LoadedRequest request = LoadRequest(paths);
    if (request.state == RecordState::Sound) return request.request.target;
    const WorkspaceReport report = ReadWorkspace(paths);
    if (report.journal) return report.journal->target;
  }
  return LoadLedger(located).ledger.target;
}

// Whoever asked for the update gives the lock back as soon as this process exists.
std::optional<InstallationLocks> AwaitLocks(const Installation& installation,
                                            std::uint32_t patience) {
  for (std::uint32_t waited = 0;; waited += kPause) {
    std::optional<InstallationLocks> locks = InstallationLocks::TryTake(installation);
    if (locks || waited >= patience) return locks;
    platform::Sleep(kPause);
  }
}

ResumeResult Supervise(const ResumeArguments& arguments) {
  const Installation installation = InstallationOfProgram(OwnImage());
  const bool person_waits = arguments.start_application || !arguments.update_id.empty();
  std::optional<InstallationLocks> locks =
      AwaitLocks(installation, person_waits ? kPatienceForLocks : 0);
  if (locks) return Supervisor(installation, *std::move(locks), arguments).Run();
  if (arguments.start_application) {
    ShowProblem("An update of the application is under way. Try again when it has ended.");
  }
  return ResumeResult::Locked;
}

}  // namespace

Installation InstallationOfProgram(const Path& program) {
  const Path state = ParentPath(ParentPath(ParentPath(program)));
  const Installation located{
      .target = {}, .state = state, .key = std::u16string(LastComponent(state))};
  const Path target = FindTarget(located);
  if (target.empty()) {
    throw std::runtime_error("Nothing names the installation of this state directory.");
  }
  Installation installation = LocateInstallation(target, ParentPath(state));
  if (installation.key == located.key) return installation;
  throw std::runtime_error("The state directory belongs to another installation.");
}

ResumeResult RunResumer() {
  const std::optional<ResumeArguments> arguments =
      ParseResumeArguments(platform::GetCommandLineW());
  if (!arguments) {
    ShowProblem("The arguments are not known.");
    return ResumeResult::WrongArguments;
  }
  try {
    return Supervise(*arguments);
  } catch (const VerbFailure& failure) {
    ShowProblem(failure.what());
  } catch (const std::exception& failure) {
    ShowProblem(FailureText(failure));
  }
  return ResumeResult::Stuck;
}

}  // namespace tolvarine::updater::application
