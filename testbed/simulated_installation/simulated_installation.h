// An installation on a simulated computer, with releases that are described, signed and unpacked, and
// an updater that runs when the library starts it. What tests of the application's side have in
// common.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "resume/resumer.h"
#include "signing/signing_key.h"
#include "simulated_windows/computer.h"
#include "update/verbs.h"

namespace tolvarine::updater::simulated {

// Release-relative paths with `/`, and the content of each.
using FileSet = std::map<std::u16string, std::string>;

struct PackagedRelease {
  FileSet files;
  application::VerifiedRelease release;
  Path package;  // The directory with its files.
};

class SimulatedInstallation {
 public:
  // Makes a computer, current, with the state root on `state_drive` and an empty target on C:.
  explicit SimulatedInstallation(char16_t state_drive = u'C');

  Computer computer;
  signing::SigningKey key;
  std::vector<application::PublicKey> keys;  // Of `key`.
  Path target = u"C:\\Apps\\Tolvarine";
  Path state_root;
  application::Installation installation;
  Path updater = u"C:\\Tools\\TolvarineUpdater.exe";
  // The exit code of the last program that ran; nothing where it was interrupted.
  std::optional<std::int32_t> exit_code;
  std::optional<application::ResumeResult> resume_result;  // Of the last resumer.
  // Whether a started updater runs at once. Without, only its process is made.
  bool run_updater = true;

  // Describes, signs and unpacks a release. `removed` is its own list of files that are gone.
  PackagedRelease Package(std::uint64_t sequence, const FileSet& files,
                          const std::vector<std::u16string>& removed = {});

  // Replaces the target's files, as a full package does, and leaves those of others alone.
  void InstallFully(const PackagedRelease& release, const FileSet* former = nullptr);

  [[nodiscard]] application::PrepareRequest RequestOf(const PackagedRelease& release) const;
  application::PreparedUpdate Prepare(const PackagedRelease& release);
  application::StartedUpdate Start(std::uint32_t wait_pid = 0);
  application::VerbResult Finish();
  application::VerbResult Abandon(const std::u16string& id = {});
  application::VerbResult Adopt(const PackagedRelease& release);
  application::InstallationStatus Status();

  // Runs the resumers that were started.
  void RunWaiting();
  // Runs what is registered for a logon of the user.
  void LogOn();

  // Prepare, start and finish, each of which must be done. Returns the exit code of the updater.
  std::int32_t Update(const PackagedRelease& release);

  // The state of one update; Remainder without a workspace.
  [[nodiscard]] application::WorkspaceState StateOf(const PackagedRelease& release);

  // The files of the target, the update log left out.
  [[nodiscard]] FileSet Target() const;

 private:
  void Run(const CreatedProcess& process, const std::function<std::int32_t()>& program);

  std::vector<CreatedProcess> waiting_;  // Resumers, which wait for the locks of who starts them.
};

}  // namespace tolvarine::updater::simulated
