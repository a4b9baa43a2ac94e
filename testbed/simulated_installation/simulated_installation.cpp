#include "simulated_installation/simulated_installation.h"

#include <algorithm>
#include <stdexcept>

#include "driver/main_sequence.h"
#include "driver/update_log.h"
#include "release/describe.h"
#include "simulated_windows/volume.h"
#include "text/utf8.h"

namespace tolvarine::updater::simulated {
namespace {

constexpr char16_t kUpdaterProgram[] = u"C:\\Tools\\TolvarineUpdater.exe";
constexpr char16_t kResumerProgram[] = u"C:\\Tools\\TolvarineResume.exe";
constexpr char16_t kRunKey[] = u"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

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
  computer.disk.WriteFile(kResumerProgram, "the resumer's program");
  computer.processes.on_create = [this](const CreatedProcess& process) {
    const bool is_resumer = LastComponent(process.application) == application::kResumerName;
    if (is_resumer) {
      waiting_.push_back(process);
    } else if (run_updater) {
      Run(process, [] { return updater::RunUpdater(); });
    }
  };
  installation = application::LocateInstallation(target, state_root);
  computer.disks.Settle();
}

// As a process of its own does: with its own command line and id, and an empty log path.
void SimulatedInstallation::Run(const CreatedProcess& process,
                                const std::function<std::int32_t()>& program) {
  const std::uint32_t caller = std::exchange(computer.processes.own_id, process.id);
  std::u16string line = std::exchange(computer.desktop.command_line, process.command_line);
  exit_code.reset();
  UpdateLogPath().clear();
  const std::int32_t code = program();
  exit_code = code;
  computer.processes.own_id = caller;
  computer.desktop.command_line = std::move(line);
  Process& ended = computer.processes.by_id[process.id];
  ended.exit_code = static_cast<std::uint32_t>(code);
  ended.exits_after_ms = computer.clock.elapsed_ms;
}

void SimulatedInstallation::RunWaiting() {
  while (!waiting_.empty()) {
    const CreatedProcess process = waiting_.front();
    waiting_.erase(waiting_.begin());
    Run(process, [this] {
      resume_result = application::RunResumer();
      return static_cast<std::int32_t>(*resume_result);
    });
  }
}

void SimulatedInstallation::LogOn() {
  const auto key = computer.registry.values.find(FoldName(kRunKey));
  if (key == computer.registry.values.end()) return;
  for (const auto& [name, value] : key->second) {
    std::u16string line = value.text;
    const Path program = line.substr(1, line.size() - 2);  // In quotation marks.
    platform::ProcessInformation started;
    if (!platform::CreateProcessW(program.c_str(), line.data(), 0, nullptr, &started)) continue;
    platform::CloseHandle(started.process);
    platform::CloseHandle(started.thread);
  }
  RunWaiting();
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
  request.resumer = kResumerProgram;
  return request;
}

application::PreparedUpdate SimulatedInstallation::Prepare(const PackagedRelease& release) {
  return application::Prepare(installation, RequestOf(release), keys);
}

application::StartedUpdate SimulatedInstallation::Start(std::uint32_t wait_pid) {
  application::StartedUpdate started =
      application::Start(installation, {.id = {}, .wait_pid = wait_pid});
  RunWaiting();
  return started;
}

application::VerbResult SimulatedInstallation::Finish() {
  return application::Finish(installation);
}

application::VerbResult SimulatedInstallation::Abandon(const std::u16string& id) {
  return application::Abandon(installation, id);
}

application::VerbResult SimulatedInstallation::Adopt(const PackagedRelease& release) {
  return application::Adopt(installation, {.release = release.release});
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
