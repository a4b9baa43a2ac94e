#include <stdexcept>

#include "files/file_operations.h"
#include "lists/release_path.h"
#include "platform/handles.h"
#include "system/processes.h"
#include "update/caller.h"
#include "update/difference.h"
#include "update/fixed_subset.h"
#include "update/launch.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

bool CanBeStarted(WorkspaceState state) {
  switch (state) {
    case WorkspaceState::Applying:
    case WorkspaceState::Restoring:
    case WorkspaceState::Committed:
      return true;
    default:
      return HasChangedNothing(state);
  }
}

// An updater that a job ends together with the application that it waits for is of no use.
void RefuseDeadlyJob(const WaitedProcess& waited) {
  std::uint32_t limits = 0;
  if (waited.id == 0 || !platform::QueryInformationJobObject(&limits)) return;
  const bool killed = (limits & platform::kJobObjectLimitKillOnJobClose) != 0;
  const bool may_leave = (limits & (platform::kJobObjectLimitBreakawayOk |
                                    platform::kJobObjectLimitSilentBreakawayOk)) != 0;
  if (!killed || may_leave) return;
  throw VerbFailure(ReasonCode::KilledWithJob,
                    "This process belongs to a job that ends all of its processes together, and "
                    "that they cannot leave. Start the update from outside of it.");
}

[[noreturn]] void RefuseUnfit(const std::string& what, const Path& path) {
  throw VerbFailure(ReasonCode::WrongState, what + " Prepare the update again.", path);
}

// An update that has changed nothing yet has to fit the installation as it is now. The files that
// it leaves alone are of the release already, unless somebody has installed another one since.
void RequireFit(const Installation& installation, const WorkspaceStatus& workspace,
                const UpdateRequest& request, const ProgressCallback& progress) {
  if (!HasChangedNothing(workspace.report.state)) return;
  const Path application = JoinPath(request.source, kApplicationPath);
  if (QueryLinkStatus(application).kind != FileKind::regular) {
    RefuseUnfit("The staged release has gone.", application);
  }
  const UpdatePaths paths = PathsOf(installation, workspace.id);
  Path deviation;
  try {
    const VerifiedRelease release = ReadReleaseOfUpdate(paths.release, workspace.id);
    const Difference fresh =
        FindDifference(installation.target, release.description, nullptr, progress);
    deviation = FindDeviation(installation.target, workspace.report,
                              {request.inventory, request.deletions}, fresh,
                              /*with_deletions=*/false);
  } catch (const UnsoundRelease& failure) {
    RefuseUnfit(failure.what(), paths.release);
  }
  if (deviation.empty()) return;
  RefuseUnfit("The installation has changed since the update was prepared: " + Quoted(deviation) +
                  " is another file.",
              deviation);
}

std::uint32_t StartUpdater(const Installation& installation, const WorkspaceStatus& workspace,
                           const StartRequest& request, InstallationLocks& locks) {
  const WaitedProcess waited = InspectProcess(request.wait_pid);
  RefuseDeadlyJob(waited);
  const UpdaterLaunch launch(installation, workspace, request.updater);
  RequireFit(installation, workspace, launch.request(), request.progress);
  launch.PutRight();
  const Path launched = PathsOf(installation, workspace.id).launched;
  WriteFileDurably(launched, "{}\n");
  try {
    const platform::ProcessInformation process = launch.Start(locks, waited);
    platform::CloseHandle(process.thread);
    platform::CloseHandle(process.process);
    return process.process_id;
  } catch (const std::exception&) {
    RemoveEntry(launched);
    throw;
  }
}

}  // namespace

StartedUpdate Start(const Installation& installation, const StartRequest& request) {
  return UnderLocks<StartedUpdate>(installation, [&](InstallationLocks& locks,
                                                     const std::vector<WorkspaceStatus>& workspaces,
                                                     StartedUpdate& started) {
    if (const auto refusal = RefusalOfCaller()) throw VerbFailure(refusal->code, refusal->text);
    const WorkspaceStatus* const chosen =
        ChooseWorkspace(workspaces, request.id, CanBeStarted, "cannot be started", started.result);
    if (chosen == nullptr) return;
    for (const WorkspaceStatus& other : workspaces) {
      const bool unfinished = &other != chosen && IsUnfinished(other.report.state);
      if (unfinished) RefuseState(other, "is unfinished", started.result);
    }
    if (started.result.outcome != Outcome::Done) return;
    started.process_id = StartUpdater(installation, *chosen, request, locks);
  });
}

}  // namespace tolvarine::updater::application
