#include "simulated_update/simulated_update.h"

#include <algorithm>

#include "driver/main_sequence.h"
#include "driver/update_log.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::simulated {
namespace {

constexpr char16_t kUpdaterPath[] = u"C:\\Tools\\TolvarineUpdater.exe";
constexpr std::size_t kSeveralSectors = 1800;

Path OnDrive(char16_t drive, std::u16string_view rest) {
  return Path(1, drive).append(u":\\").append(rest);
}

void SetUp(Computer& computer, const Path& root, const FileSet& files) {
  computer.disk.MakeDirectory(root);
  for (const auto& [path, content] : files) computer.disk.WriteFile(JoinPath(root, path), content);
}

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

UpdatePlan TypicalPlan() {
  UpdatePlan plan;
  plan.baseline = {{u"Tolvarine.exe", "old executable"},
                   {u"lib/core.dll", "old core"},
                   {u"lib/old.dll", "to be deleted"},
                   {u"readme.txt", std::string(kSeveralSectors, 'o')},
                   {u"user/settings.ini", "the person's own"}};
  plan.release = {{u"Tolvarine.exe", "new executable"},
                  {u"lib/core.dll", "new core, which is longer"},
                  {u"readme.txt", std::string(kSeveralSectors, 'n')},
                  {u"empty.dat", ""},
                  {u"plug/ins/new.dll", "brought by the release"}};
  plan.deletions = {u"lib/old.dll", u"never/there.txt"};
  return plan;
}

SimulatedUpdate::SimulatedUpdate(UpdatePlan update_plan) : plan(std::move(update_plan)) {
  for (const char16_t drive : {plan.state_drive, plan.target_drive}) {
    const auto& volumes = computer.disks.volumes;
    if (std::ranges::find(volumes, drive, &Volume::drive) == volumes.end())
      computer.disks.AddVolume(drive);
  }
  computer.MakeCurrent();
  layout = inspection::LayoutOf(OnDrive(plan.state_drive, u"State"), kInstallKey, kUpdateId);
  source = JoinPath(layout.stages, u"release");
  target = OnDrive(plan.target_drive, u"Program Files\\Tolvarine");
  SetUp(computer, source, plan.release);
  SetUp(computer, target, plan.baseline);
  computer.disk.WriteFile(layout.pending_marker, kPendingContent);
  computer.disk.WriteFile(layout.launched_marker, kLaunchedContent);
  computer.disk.WriteFile(layout.archive, kArchiveContent);
  computer.disk.WriteFile(layout.installed_manifest, kPreviousManifest);
  computer.disks.Settle();

  arguments.source = source;
  arguments.target = target;
  arguments.restart = u"Tolvarine.exe";
  arguments.state_file = layout.pending_marker;
  arguments.completed_file = layout.completed_marker;
  arguments.installed_manifest_file = layout.installed_manifest;
  arguments.workspace = layout.workspace;
  arguments.update_id = kUpdateId;
  arguments.install_key = kInstallKey;
  arguments.source_inventory = inspection::InventoryOf(source);
  arguments.managed_deletions.assign(plan.deletions.begin(), plan.deletions.end());
  RefreshCommandLine();
}

void SimulatedUpdate::RefreshCommandLine() {
  computer.desktop.command_line = application::CommandLineOf(kUpdaterPath, arguments);
}

std::int32_t SimulatedUpdate::Run() {
  UpdateLogPath().clear();
  return RunUpdater();
}

TransactionRequest SimulatedUpdate::Request() const {
  return {.source = source,
          .target = target,
          .transaction = layout.transaction,
          .inventory = arguments.source_inventory,
          .recovery_policy = RecoveryPolicy::ResumeForward,
          .crash_hook = {},
          .managed_deletions = arguments.managed_deletions};
}

FileSet SimulatedUpdate::Target() const {
  FileSet files = FilesBelow(computer, target);
  files.erase(u"log.txt");
  return files;
}

FileSet SimulatedUpdate::Transaction() const { return FilesBelow(computer, layout.transaction); }

FileSet SimulatedUpdate::Installed() const {
  FileSet files = plan.baseline;
  for (const auto& [path, content] : plan.release) files[path] = content;
  for (const std::u16string& path : plan.deletions) files.erase(path);
  return files;
}

std::string SimulatedUpdate::Log() const {
  return computer.disk.ReadFile(TargetPath(u"log.txt")).value_or(std::string());
}

Path SimulatedUpdate::TargetPath(std::u16string_view relative) const {
  return JoinPath(target, relative);
}

Path SimulatedUpdate::SourcePath(std::u16string_view relative) const {
  return JoinPath(source, relative);
}

}  // namespace tolvarine::updater::simulated
