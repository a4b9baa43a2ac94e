// The start of an updater for one update: its arguments, the verified copy of its program, and what
// is put right before.

#pragma once

#include <cstdint>
#include <optional>

#include "driver/command_line.h"
#include "files/locked_release_file.h"
#include "state/request.h"
#include "system/processes.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// The process whose end an updater waits for; an id of 0 stands for none.
struct WaitedProcess {
  std::uint32_t id = 0;
  std::uint64_t created_at = 0;  // A raw file time, exact.
};

// Throws VerbFailure for a process that cannot be inspected. An id of 0 gives none.
[[nodiscard]] WaitedProcess InspectProcess(std::uint32_t id);

// A program that is held open from its verification until it runs.
class HeldProgram {
 public:
  // Throws VerbFailure where the copy is not the one that was recorded, and FilesystemError where it
  // cannot be read.
  explicit HeldProgram(ProgramCopy program);

  // Starts it in the state directory with no inherited handles, outside of this process's job where
  // the job lets it. Both handles are the caller's. Throws VerbFailure.
  [[nodiscard]] platform::ProcessInformation Start(const Installation& installation,
                                                   std::u16string command_line) const;

 private:
  ProgramCopy program_;
  LockedReleaseFile file_;
};

class UpdaterLaunch {
 public:
  // Reads the request; where a journal stands, the lists are the journal's. Throws VerbFailure where
  // what is needed is missing or damaged. Both arguments must outlive the object.
  UpdaterLaunch(const Installation& installation, const WorkspaceStatus& workspace);

  // The request, or without a sound one what stands for it.
  [[nodiscard]] const UpdateRequest& request() const { return request_; }

  // Puts back the pending marker where only the journal stands, removes slot temporaries that stand
  // alone, and makes the stage one that the updater accepts where the installation is not whole.
  // Each step is durable and can be repeated. Throws FilesystemError or SystemError.
  void PutRight() const;

  // Gives the mutex back and starts the updater. Throws VerbFailure.
  [[nodiscard]] platform::ProcessInformation Start(InstallationLocks& locks,
                                                   const WaitedProcess& waited) const;

 private:
  void RestorePendingMarker() const;
  void RemoveSlotTemporaries() const;
  void RestoreStage() const;

  const Installation& installation_;
  const WorkspaceStatus& workspace_;
  UpdatePaths paths_;
  UpdateRequest request_;
};

}  // namespace tolvarine::updater::application
