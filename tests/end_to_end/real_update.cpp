#include "end_to_end/real_update.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "files/file_operations.h"
#include "text/hex.h"
#include "text/utf8.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;
using inspection::NameOf;
using inspection::ReadFile;

constexpr char16_t kUpdateId[] =
    u"00112233445566778899aabbccddeeff0123456789abcdef0123456789abcdef";

FileTree WithDirectories(const FileTree& files) {
  FileTree tree;
  for (const auto& [name, content] : files) {
    for (std::size_t at = name.find('/'); at != std::string::npos; at = name.find('/', at + 1)) {
      tree[name.substr(0, at + 1)];
    }
    tree[name] = content;
  }
  return tree;
}

// Holds the scratch directories of this run.
const fs::path& ScratchRoot() {
  static const fs::path root = [] {
    fs::path path = fs::canonical(fs::temp_directory_path()) /
                    ("tolvarine-" + std::to_string(GetCurrentProcessId()));
    // An interrupted run with the same process id may have left it.
    static_cast<void>(RemoveTree(path.u16string()));
    return path;
  }();
  fs::create_directories(root);
  return root;
}

// Different for every update, so that no two share a lock.
std::u16string NewInstallKey() {
  static int count = 0;
  std::string text = std::to_string(GetCurrentProcessId()) + "-" +
                     std::to_string(GetTickCount64()) + "-" + std::to_string(++count);
  text.resize(32, '.');
  const std::string digits = EncodeHex(text);
  return {digits.begin(), digits.end()};
}

// The standard library's has whole seconds only.
std::uint64_t LastWriteTime(const fs::path& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
  const FILETIME& time = data.ftLastWriteTime;
  return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

// The beginning of a record of the log that is written now.
std::string TimePrefix() {
  TIME_ZONE_INFORMATION zone = {};
  const DWORD id = GetTimeZoneInformation(&zone);
  if (id == TIME_ZONE_ID_STANDARD) zone.Bias += zone.StandardBias;
  if (id == TIME_ZONE_ID_DAYLIGHT) zone.Bias += zone.DaylightBias;
  SYSTEMTIME now = {};
  GetLocalTime(&now);
  char text[64] = {};
  std::snprintf(text, sizeof(text), "[%04u-%02u-%02u %02u:%02u:%02u.%03u %c%02ld:%02ld] ",
                now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond,
                now.wMilliseconds, zone.Bias > 0 ? '-' : '+', std::abs(zone.Bias) / 60,
                std::abs(zone.Bias) % 60);
  return text;
}

// In this form text sorts as time does while the offset is the same.
bool IsTimeBetween(std::string_view prefix, std::string_view from, std::string_view to) {
  constexpr std::size_t kOffset = 25;
  return prefix.size() == from.size() && from <= prefix && prefix <= to &&
         prefix.substr(kOffset) == from.substr(kOffset);
}

}  // namespace

std::string Application(std::string_view version) {
  static const std::string program = ReadFile(ProgramPath("stand_in_application.exe"));
  return program + "\n" + std::string(version);
}

FileHandle OpenWithoutDeleteSharing(const fs::path& path) {
  return FileHandle(platform::CreateFileW(path.u16string().c_str(), platform::kGenericRead,
                                          platform::kFileShareRead | platform::kFileShareWrite,
                                          platform::kOpenExisting, platform::kFileAttributeNormal));
}

void WriteBytes(const fs::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + NameOf(path));
}

void WriteTree(const fs::path& directory, const FileTree& files) {
  fs::create_directories(directory);
  for (const auto& [name, content] : files) {
    const fs::path path = directory / std::u8string(name.begin(), name.end());
    fs::create_directories(path.parent_path());
    WriteBytes(path, content);
  }
}

fs::path NewScratchDirectory() {
  static int count = 0;
  const fs::path path = ScratchRoot() / std::to_string(++count);
  fs::create_directory(path);
  return path;
}

void RemoveScratchDirectory(const fs::path& directory) {
  static_cast<void>(Eventually([&] { return RemoveTree(directory.u16string()).error == 0; }));
  std::error_code error;
  fs::remove(ScratchRoot(), error);  // Once it is empty.
}

UpdateContents UsualContents() {
  return {.installed = {{"Tolvarine.exe", Application("1")},
                        {"bin/core.dll", "core 1"},
                        {"bin/old.dll", "old"},
                        {"same.txt", "the same"},
                        {"settings.ini", "made by the user"}},
          .release = {{"Tolvarine.exe", Application("2")},
                      {"bin/core.dll", "core 2"},
                      {"big.bin", std::string(200000, 'b')},
                      {"data/deep/er/new.txt", "new"},
                      {"empty.dat", ""},
                      {"same.txt", "the same"},
                      {"\u00fcbersicht \u6587.txt", "not ASCII"}},
          .deletions = {u"bin\\old.dll"}};
}

RealUpdate::RealUpdate(UpdateContents update)
    : contents(std::move(update)),
      root(NewScratchDirectory()),
      target(root / "target"),
      application(target / "Tolvarine.exe") {
  arguments.install_key = NewInstallKey();
  arguments.update_id = kUpdateId;
  layout = inspection::LayoutOf((root / "state").u16string(), arguments.install_key, kUpdateId);
  release = layout.stages;
  WriteTree(target, contents.installed);
  WriteTree(release, contents.release);
  WriteTree(layout.workspace,
            {{"pending.json", "{pending}"}, {"launched.json", "{}"}, {"archive.zip", "PK"}});
  arguments.source = layout.stages;
  arguments.target = target.u16string();
  arguments.restart = u"Tolvarine.exe";
  arguments.state_file = layout.pending_marker;
  arguments.completed_file = layout.completed_marker;
  arguments.installed_manifest_file = layout.installed_manifest;
  arguments.workspace = layout.workspace;
  arguments.source_inventory = inspection::InventoryOf(layout.stages);
  arguments.managed_deletions = contents.deletions;
  made_at_ = TimePrefix();
  stamps_ = StampsNow();
}

RealUpdate::~RealUpdate() { RemoveScratchDirectory(root); }

void RealUpdate::WaitFor(const RealProcess& process) {
  arguments.wait_pid = process.id();
  arguments.wait_process_created_at = process.CreationTime();
  arguments.has_wait_process_created_at = true;
}

std::u16string RealUpdate::CommandLine() const {
  return application::CommandLineOf(ProgramPath("TolvarineUpdater.exe").u16string(), arguments);
}

std::unique_ptr<RealProcess> RealUpdate::Start() const {
  return std::make_unique<RealProcess>(CommandLine());
}

fs::path RealUpdate::RestartAnotherProgram() {
  const fs::path launcher = root / "launcher" / "Start.exe";
  fs::create_directory(launcher.parent_path());
  WriteBytes(launcher, Application("launcher"));
  arguments.restart = launcher.u16string();
  return launcher;
}

TransactionPhase RealUpdate::SavedPhase() const {
  return inspection::SavedPhase(layout.transaction);
}

void RealUpdate::ExpectTarget(const std::set<inspection::Version>& versions) const {
  FileTree now = inspection::ReadTree(target);
  now.erase("log.txt");
  FileTree updated = contents.installed;
  for (const Path& path : contents.deletions) updated.erase(NameOf(path));
  for (const auto& [name, content] : contents.release) updated[name] = content;
  const FileTree before = WithDirectories(contents.installed), after = WithDirectories(updated);
  EXPECT_EQ(inspection::Deviations(now, before, after, versions), "");
}

void RealUpdate::ExpectInstalled() const {
  EXPECT_EQ(Restarted(application), Restart("2", target, application));
  ExpectTarget({inspection::Version::New});
}

Changes RealUpdate::ChangesSince() {
  const Stamps before = std::exchange(stamps_, StampsNow());
  Changes changes;
  for (const Stamps::value_type& stamp : before) {
    if (!stamps_.contains(stamp)) changes.insert("- " + stamp.first);
  }
  for (const Stamps::value_type& stamp : stamps_) {
    if (!before.contains(stamp)) changes.insert("+ " + stamp.first);
  }
  return changes;
}

std::string RealUpdate::ShortName(const fs::path& path) const {
  const std::pair<fs::path, const char*> words[] = {{target, "target"},
                                                    {release, "release"},
                                                    {layout.workspace, "workspace"},
                                                    {layout.state, "state"}};
  std::string name = NameOf(path);
  for (const auto& [directory, word] : words) {
    const std::string prefix = NameOf(directory);
    if (name.starts_with(prefix)) return name.replace(0, prefix.size(), word);
  }
  return name;
}

RealUpdate::Stamps RealUpdate::StampsNow() const {
  Stamps stamps;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = ShortName(entry.path());
    if (entry.is_directory()) {
      stamps.emplace(name + "/", 0);
    } else {
      stamps.emplace(name, LastWriteTime(entry.path()));
    }
  }
  return stamps;
}

std::string RealUpdate::Log() const {
  const std::string log = ReadFile(target / "log.txt");
  const std::string now = TimePrefix();
  std::string records;
  for (std::size_t at = 0; at < log.size();) {
    const std::size_t end = std::min(log.find('\n', at), log.size() - 1) + 1;
    const std::string_view record = std::string_view(log).substr(at, end - at);
    const bool dated = IsTimeBetween(record.substr(0, now.size()), made_at_, now);
    if (!dated) records.append("bad time: ");
    records.append(record.substr(dated ? now.size() : 0));
    at = end;
  }
  return records;
}

std::string RealUpdate::Restarted(const fs::path& program) const {
  const fs::path report = program.parent_path() / "restarted.txt";
  // It cannot be opened while it is being renamed.
  if (!Eventually([&] { return std::ifstream(report).is_open(); })) return "nothing was restarted";
  const std::string text = ReadFile(report);
  fs::remove(report);
  return text;
}

std::string Restart(std::string_view version, const fs::path& directory, const fs::path& program) {
  return std::string("version ").append(version) + "\nworking directory " +
         Utf8FromUtf16(directory.u16string()) + "\nprogram " + Utf8FromUtf16(program.u16string()) +
         "\n";
}

std::string LogRecord(std::string_view level, std::string message) {
  for (std::size_t at = message.find('\n'); at != std::string::npos; at = message.find('\n')) {
    message.replace(at, 1, "\\n");
  }
  return std::string("[").append(level).append("] [Updater] ").append(message) + "\r\n";
}

}  // namespace tolvarine::updater::end_to_end
