#include "simulated_installation/simulated_installation.h"

#include <algorithm>
#include <stdexcept>

#include "driver/main_sequence.h"
#include "driver/update_log.h"
#include "release/describe.h"
#include "text/utf8.h"

namespace tolvarine::updater::simulated {
namespace {

constexpr char16_t kUpdaterProgram[] = u"C:\\Tools\\TolvarineUpdater.exe";

FileSet FilesBelow(const Computer& computer, const Path& root) {
  FileSet files;
  for (auto& [path, content] : computer.disk.Tree(root)) {
    if (path.ends_with(u'\\')) continue;
    std::u16string generic = path;
    std::ranges::replace(generic, u'\\', u'/');
    files[generic] = content;
  }
  return files;
}

}  // namespace

SimulatedInstallation::SimulatedInstallation(char16_t state_drive)
    : keys{key.PublicPart()}, state_root(Path(1, state_drive) + u":\\State") {
  computer.MakeCurrent();
  if (state_drive != u'C') computer.disks.AddVolume(state_drive);
  computer.disk.MakeDirectory(target);
  computer.disk.MakeDirectory(state_root);
  computer.disk.WriteFile(kUpdaterProgram, "the updater's program");
  computer.processes.on_create = [this](const CreatedProcess& process) {
    if (run_updater) RunUpdater(process);
  };
  installation = application::LocateInstallation(target, state_root);
  computer.disks.Settle();
}

// As a process of its own does: with its own command line and id, and an empty log path.
void SimulatedInstallation::RunUpdater(const CreatedProcess& process) {
  exit_code.reset();
  // Also where a power cut ends the updater.
  struct OwnId {
    std::uint32_t& current;
    std::uint32_t caller;
    ~OwnId() { current = caller; }
  };
  const OwnId own{computer.processes.own_id, std::exchange(computer.processes.own_id, process.id)};
  computer.desktop.command_line = process.command_line;
  UpdateLogPath().clear();
  exit_code = updater::RunUpdater();
  computer.processes.by_id[process.id].exits_after_ms = computer.clock.elapsed_ms;
}

PackagedRelease SimulatedInstallation::Package(std::uint64_t sequence, const FileSet& files,
                                               const std::vector<std::u16string>& removed) {
  PackagedRelease packaged{.files = files, .release = {}, .package = {}};
  const std::string number = std::to_string(sequence);
  packaged.package = u"C:\\Packages\\" + Utf16FromUtf8(number);
  computer.disk.Remove(packaged.package);
  for (const auto& [path, content] : files) {
    computer.disk.WriteFile(JoinPath(packaged.package, path), content);
  }
  application::DescribedRelease described = application::DescribeRelease(
      {.release = packaged.package, .channel = "stable", .version = number, .sequence = sequence});
  if (!described.problems.empty()) throw std::logic_error(described.problems.front());
  application::ReleaseDescription description = application::ParseDescription(described.payload);
  for (const std::u16string& path : removed) description.removed.push_back(path);
  const std::string envelope = key.Envelope(application::SerializeDescription(description));
  packaged.release = application::VerifyRelease(envelope, keys);
  computer.disk.WriteFile(packaged.package + u".json", envelope);
  computer.disks.Settle();
  return packaged;
}

void SimulatedInstallation::InstallFully(const PackagedRelease& release, const FileSet* former) {
  if (former != nullptr) {
    for (const auto& [path, content] : *former) computer.disk.Remove(JoinPath(target, path));
  }
  for (const auto& [path, content] : release.files) {
    computer.disk.WriteFile(JoinPath(target, path), content);
  }
  computer.disks.Settle();
}

application::PrepareRequest SimulatedInstallation::RequestOf(const PackagedRelease& release) const {
  application::PrepareRequest request;
  request.package = release.package;
  request.release = release.release;
  request.updater = updater;
  return request;
}

application::PreparedUpdate SimulatedInstallation::Prepare(const PackagedRelease& release) {
  return application::Prepare(installation, RequestOf(release), keys);
}

application::StartedUpdate SimulatedInstallation::Start(std::uint32_t wait_pid) {
  return application::Start(installation, {.id = {}, .wait_pid = wait_pid});
}

application::VerbResult SimulatedInstallation::Finish() {
  return application::Finish(installation);
}

application::VerbResult SimulatedInstallation::Abandon(const std::u16string& id) {
  return application::Abandon(installation, id);
}

application::VerbResult SimulatedInstallation::Adopt(const PackagedRelease& release) {
  return application::Adopt(installation, {.release = release.release}, keys);
}

application::InstallationStatus SimulatedInstallation::Status() {
  return application::Status(installation, keys);
}

std::int32_t SimulatedInstallation::Update(const PackagedRelease& release) {
  const auto require = [](const application::VerbResult& result) {
    if (result.outcome == application::Outcome::Done) return;
    throw std::logic_error(result.reasons.empty() ? "refused" : result.reasons.front().text);
  };
  require(Prepare(release).result);
  require(Start().result);
  require(Finish());
  return exit_code.value_or(-1);
}

application::WorkspaceState SimulatedInstallation::StateOf(const PackagedRelease& release) {
  return application::ReadWorkspace(application::PathsOf(installation, release.release.id)).state;
}

FileSet SimulatedInstallation::Target() const {
  FileSet files = FilesBelow(computer, target);
  files.erase(u"log.txt");
  return files;
}

}  // namespace tolvarine::updater::simulated
