#include "driver/main_sequence.h"

#include "driver/updater.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "platform/shell.h"

namespace tolvarine::updater {
namespace {

constexpr std::int64_t kLockTimeout = 1000;               // Milliseconds.
constexpr std::uint32_t kApplicationExitTimeout = 60000;  // Milliseconds.
constexpr std::intptr_t kLastShellError = 32;

constexpr char16_t kErrorTitle[] = u"Could not install update";
constexpr char16_t kWarningTitle[] = u"Update installed";
constexpr char16_t kDetailsSeparator[] = u"\n\nDetails: ";
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
  std::int32_t count_ = 0;  // Before the vector, whose initializer sets it.
  char16_t** arguments_;
};

// The steps, in the order in which they are taken.
ExitCode ReportFailure(const std::u16string& message, ExitCode code);
const char16_t* RefusalOfApplicationWait(const UpdaterArguments& arguments);
TransactionPhase RunInstallation(const UpdaterArguments& arguments, std::string& details);
std::u16string FailureMessage(TransactionPhase status, std::string_view details);
bool PublishMarkers(const UpdaterArguments& arguments);
void WarnOfDeferredCleanup();
bool RestartApplication(const UpdaterArguments& arguments);

// The lock is held from its acquisition on through every box and the restart, so that a further
// updater steps aside.
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
  // Another updater is at work: not an error, and not a word.
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

// The record is written before the box can block.
void ShowFatalError(const std::u16string& message) {
  WriteUpdateLog(kLogError, message);
  platform::MessageBoxW(message.c_str(), kErrorTitle, platform::kMessageBoxIconError);
}

ExitCode ReportFailure(const std::u16string& message, ExitCode code) {
  ShowFatalError(message);
  return code;
}

// Null when the application has ended, or none was named.
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

const char16_t* BaseMessage(TransactionPhase status) {
  switch (status) {
    case TransactionPhase::Corrupt:
      return u"The update transaction state is corrupt. No cleanup was attempted; the protected "
             u"update workspace was preserved.";
    case TransactionPhase::Rollback:
      return u"The update failed and rollback is incomplete. Retry the update before using the "
             u"application.";
    default:
      return u"The update failed. The original installation was restored.";
  }
}

std::u16string FailureMessage(TransactionPhase status, std::string_view details) {
  std::u16string message = BaseMessage(status);
  if (!details.empty()) message.append(kDetailsSeparator).append(WidenBytes(details));
  return message;
}

// Publishes the installed manifest, finalizes the markers and deletes the archive. True when the
// copy was made and the finalization did not fail; what could not be removed does not count.
bool PublishMarkers(const UpdaterArguments& arguments) {
  if (!CopyMarkerDurably(arguments.state_file, arguments.installed_manifest_file)) return false;
  const TransactionFinalizeRequest request{.transaction = TransactionDirectory(arguments),
                                           .pending_marker = arguments.state_file,
                                           .completed_marker = arguments.completed_file,
                                           .before_marker_move = {}};
  std::string dropped;
  if (FinalizeUpdateMarkers(request, &dropped) == kFinalizeFailed) return false;
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

// FlushFile would take the extended form; a marker's path is taken as given throughout.
bool FlushTemporary(const Path& temporary) {
  const FileHandle file(platform::CreateFileW(
      temporary.c_str(), platform::kGenericRead | platform::kGenericWrite, platform::kFileShareRead,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  return file && platform::FlushFileBuffers(file.get());
}

}  // namespace

std::int32_t RunUpdater() {
  const ArgumentVector vector;
  return static_cast<std::int32_t>(RunSequence(vector));
}

bool CopyMarkerDurably(const Path& source, const Path& destination) {
  const Path temporary = destination + u".tmp";
  platform::DeleteFileW(temporary.c_str());
  if (!platform::CopyFileW(source.c_str(), temporary.c_str(), /*fail_if_exists=*/false)) {
    return false;
  }
  const bool published =
      FlushTemporary(temporary) &&
      platform::MoveFileExW(temporary.c_str(), destination.c_str(),
                            platform::kMovefileReplaceExisting | platform::kMovefileWriteThrough);
  if (!published) platform::DeleteFileW(temporary.c_str());
  return published;
}

std::u16string WidenBytes(std::string_view text) {
  std::u16string wide;
  wide.reserve(text.size());
  for (const char byte : text) {
    wide.push_back(static_cast<char16_t>(static_cast<signed char>(byte)));
  }
  return wide;
}

}  // namespace tolvarine::updater
