#include "files/file_operations.h"
#include "platform/handles.h"
#include "resume/resume_arguments.h"
#include "system/processes.h"
#include "update/launch.h"
#include "update/registration.h"
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

// A resumer that a job ends together with the application that it waits for is of no use.
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

// The registration is on the disk before anything needs it.
std::uint32_t AskFor(const Installation& installation, const WorkspaceStatus& workspace,
                     const WaitedProcess& waited) {
  const UpdaterLaunch launch(installation, workspace);
  const ProgramCopy& resumer = launch.request().resumer;
  const HeldProgram held_updater(launch.request().updater);
  const HeldProgram held_resumer(resumer);
  RegisterResumer(installation, resumer.path);
  const Path launched = PathsOf(installation, workspace.id).launched;
  WriteFileDurably(launched, "{}\n");
  const platform::ProcessInformation process = held_resumer.Start(
      installation,
      ResumeCommandLine(resumer.path, {.update_id = workspace.id,
                                       .wait_pid = waited.id,
                                       .wait_process_created_at = waited.created_at}));
  platform::CloseHandle(process.thread);
  platform::CloseHandle(process.process);
  return process.process_id;
}

}  // namespace

StartedUpdate Start(const Installation& installation, const StartRequest& request) {
  return UnderLocks<StartedUpdate>(installation, [&](InstallationLocks&,
                                                     const std::vector<WorkspaceStatus>& workspaces,
                                                     StartedUpdate& started) {
    const WorkspaceStatus* const chosen = ChooseWorkspace(workspaces, request.id, started.result);
    if (chosen == nullptr) return;
    if (!CanBeStarted(chosen->report.state)) {
      RefuseState(*chosen, "cannot be started", started.result);
      return;
    }
    for (const WorkspaceStatus& other : workspaces) {
      const bool unfinished = &other != chosen && IsUnfinished(other.report.state);
      if (unfinished) RefuseState(other, "is unfinished", started.result);
    }
    if (started.result.outcome != Outcome::Done) return;
    const WaitedProcess waited = InspectProcess(request.wait_pid);
    RefuseDeadlyJob(waited);
    started.process_id = AskFor(installation, *chosen, waited);
  });
}

}  // namespace tolvarine::updater::application
