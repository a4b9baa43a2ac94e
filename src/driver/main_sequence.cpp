#include "driver/main_sequence.h"

#include "driver/updater.h"
#include "platform/shell.h"

namespace tolvarine::updater {
namespace {

constexpr std::int64_t kLockTimeout = 1000;               // Milliseconds.
constexpr std::uint32_t kApplicationExitTimeout = 60000;  // Milliseconds.
constexpr std::intptr_t kLastShellError = 32;

constexpr char16_t kErrorTitle[] = u"Could not install update";
constexpr char16_t kWarningTitle[] = u"Update installed";
constexpr char16_t kCleanupDeferred[] =
    u"The files were installed, but update cleanup could not be completed. The application will "
    u"recognize the completed transaction on startup and clean it up later.";

// The argument vector of this process.
class ArgumentVector {
 public:
  ArgumentVector()
      : arguments_(platform::CommandLineToArgvW(platform::GetCommandLineW(), &count_)) {}
  ArgumentVector(const ArgumentVector&) = delete;
  ArgumentVector& operator=(const ArgumentVector&) = delete;
  ~ArgumentVector() {
    if (arguments_ != nullptr) platform::LocalFree(arguments_);
  }

  [[nodiscard]] bool ParseInto(UpdaterArguments& arguments) const {
    return arguments_ != nullptr && ParseArguments(count_, arguments_, arguments);
  }

 private:
  std::int32_t count_ = 0;  // Declared first: the initializer of `arguments_` sets it.
  char16_t** arguments_;
};

// The steps, in the order of their calls.
ExitCode ReportFailure(const std::u16string& message, ExitCode code);
const char16_t* RefusalOfApplicationWait(const UpdaterArguments& arguments);
TransactionPhase RunInstallation(const UpdaterArguments& arguments, std::string& details);
bool PublishMarkers(const UpdaterArguments& arguments);
void WarnOfDeferredCleanup();
bool RestartApplication(const UpdaterArguments& arguments);

// The lock is held during every box and during the restart, so that another updater for this
// installation ends instead of starting its work.
ExitCode RunSequence(const ArgumentVector& vector) {
  UpdaterArguments arguments;
  if (!vector.ParseInto(arguments)) {
    return ReportFailure(u"Invalid updater arguments.", ExitCode::InvalidArguments);
  }
  const std::u16string refusal = ValidateRequest(arguments);
  if (!refusal.empty()) {
    return ReportFailure(
        u"The update source, target, or state path failed safety validation. " + refusal,
        ExitCode::InvalidRequest);
  }
  UpdateLogPath() = JoinPath(arguments.target, u"log.txt");

  InstallationLock lock(arguments.install_key);
  const LockAcquireResult acquired = lock.Acquire(kLockTimeout);
  if (acquired == LockAcquireResult::Failed) {
    return ReportFailure(u"Could not create the update transaction lock.",
                         ExitCode::InvalidRequest);
  }
  // Another updater works on this installation. That is not an error: no box and no record.
  if (acquired == LockAcquireResult::TimedOut) return ExitCode::Done;

  const char16_t* const still_running = RefusalOfApplicationWait(arguments);
  if (still_running != nullptr) return ReportFailure(still_running, ExitCode::ApplicationRunning);

  std::string details;
  const TransactionPhase status = RunInstallation(arguments, details);
  if (status != TransactionPhase::Committed) {
    return ReportFailure(FailureMessage(status, details), ExitCode::UpdateFailed);
  }
  const bool published = PublishMarkers(arguments);
  if (!published) WarnOfDeferredCleanup();
  if (!RestartApplication(arguments)) {
    return ReportFailure(u"The update was installed, but the application could not be restarted.",
                         ExitCode::RestartFailed);
  }
  return published ? ExitCode::Done : ExitCode::CleanupDeferred;
}

// Writes the record first, since the box blocks until it is closed.
void ShowFatalError(const std::u16string& message) {
  WriteUpdateLog(kLogError, message);
  platform::MessageBoxW(message.c_str(), kErrorTitle, platform::kMessageBoxIconError);
}

ExitCode ReportFailure(const std::u16string& message, ExitCode code) {
  ShowFatalError(message);
  return code;
}

// Returns null if the application has ended or if the request names no process to wait for.
const char16_t* RefusalOfApplicationWait(const UpdaterArguments& arguments) {
  if (arguments.wait_pid == 0) return nullptr;
  const ProcessWaitResult result = WaitForApplicationExit(
      arguments.wait_pid, arguments.wait_process_created_at, kApplicationExitTimeout);
  if (IsProcessWaitSafe(result)) return nullptr;
  return result == ProcessWaitResult::TimedOut
             ? u"The running application did not exit in time. No files were changed."
             : u"Could not safely verify that the running application exited. No files were "
               u"changed.";
}

Path TransactionDirectory(const UpdaterArguments& arguments) {
  return JoinPath(arguments.workspace, u"transaction");
}

TransactionPhase RunInstallation(const UpdaterArguments& arguments, std::string& details) {
  const TransactionRequest request{.source = arguments.source,
                                   .target = arguments.target,
                                   .transaction = TransactionDirectory(arguments),
                                   .inventory = arguments.source_inventory,
                                   .recovery_policy = RecoveryPolicy::ResumeForward,
                                   .crash_hook = {},
                                   .managed_deletions = arguments.managed_deletions};
  const TransactionPhase status = RunTransaction(request, &details).status;
  if (status != TransactionPhase::None) {
    RemoveEntry(JoinPath(arguments.workspace, u"launched.json"));
  }
  return status;
}

// Publishes the installed manifest, finalizes the markers and deletes the archive. Returns true if
// the manifest was copied and the finalization did not fail. Failing removals, and the text that
// the finalization gives for one, are ignored.
bool PublishMarkers(const UpdaterArguments& arguments) {
  if (!CopyMarkerDurably(arguments.state_file, arguments.installed_manifest_file)) return false;
  const TransactionFinalizeRequest request{.transaction = TransactionDirectory(arguments),
                                           .pending_marker = arguments.state_file,
                                           .completed_marker = arguments.completed_file,
                                           .before_marker_move = {}};
  std::string ignored;
  if (FinalizeUpdateMarkers(request, &ignored) == kFinalizeFailed) return false;
  RemoveEntry(JoinPath(arguments.workspace, u"archive.zip"));
  return true;
}

void WarnOfDeferredCleanup() {
  WriteUpdateLog(kLogWarning, kCleanupDeferred);
  platform::MessageBoxW(kCleanupDeferred, kWarningTitle, platform::kMessageBoxIconWarning);
}

bool RestartApplication(const UpdaterArguments& arguments) {
  const Path file = IsAbsolutePath(arguments.restart)
                        ? arguments.restart
                        : JoinPath(arguments.target, arguments.restart);
  return platform::ShellExecuteW(u"open", file.c_str(), arguments.target.c_str(),
                                 platform::kShowNormal) > kLastShellError;
}

}  // namespace

std::int32_t RunUpdater() {
  const ArgumentVector vector;
  return static_cast<std::int32_t>(RunSequence(vector));
}

}  // namespace tolvarine::updater
