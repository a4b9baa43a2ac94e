#include "end_to_end/real_update.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "engine/transaction_run.h"
#include "files/file_operations.h"
#include "journal/journal_store.h"
#include "text/fnv1a.h"
#include "text/hex.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kShortContent = 100;
constexpr char16_t kUpdateId[] =
    u"00112233445566778899aabbccddeeff0123456789abcdef0123456789abcdef";

std::string Summary(const std::string& content) {
  if (content.size() <= kShortContent) return content;
  return std::to_string(content.size()) + " bytes, " + std::to_string(Fnv1a64(content));
}

void WriteTree(const fs::path& directory, const Files& files) {
  fs::create_directories(directory);
  for (const auto& [name, content] : files) {
    const fs::path path = directory / std::u8string(name.begin(), name.end());
    fs::create_directories(path.parent_path());
    WriteBytes(path, content);
  }
}

Files AsReadBack(const Files& files) {
  Files tree;
  for (const auto& [name, content] : files) {
    for (std::size_t at = name.find('/'); at != std::string::npos; at = name.find('/', at + 1)) {
      tree[name.substr(0, at + 1)];
    }
    tree[name] = Summary(content);
  }
  return tree;
}

fs::path NewScratchDirectory() {
  static int count = 0;
  const fs::path path = ScratchRoot() / std::to_string(++count);
  fs::create_directory(path);
  return path;
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

// The library's own tells whole seconds only.
std::uint64_t LastWriteTime(const fs::path& path) {
  WIN32_FILE_ATTRIBUTE_DATA data = {};
  GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data);
  const FILETIME& time = data.ftLastWriteTime;
  return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

// What a record of the log begins with that is written now.
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

// The form is one in which text sorts as time does; only the zone must be the same.
bool IsTimeBetween(std::string_view prefix, std::string_view from, std::string_view to) {
  constexpr std::size_t kZone = 25;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const auto same_kind = [&](char a, char b) { return is_digit(a) ? is_digit(b) : a == b; };
  return std::ranges::equal(from, prefix, same_kind) && from <= prefix && prefix <= to &&
         prefix.substr(kZone) == from.substr(kZone);
}

}  // namespace

std::string NameOf(const fs::path& path) {
  const std::u8string name = path.generic_u8string();
  return {name.begin(), name.end()};
}

std::string Application(std::string_view version) {
  static const std::string program = ReadBytes(ProgramPath("end_to_end_stand_in.exe"));
  return program + "\n" + std::string(version);
}

std::string ReadBytes(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + NameOf(path));
  std::string bytes(fs::file_size(path), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

void WriteBytes(const fs::path& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!file.flush()) throw std::runtime_error("cannot write " + NameOf(path));
}

const fs::path& ScratchRoot() {
  static const fs::path root = [] {
    fs::path path = fs::canonical(fs::temp_directory_path()) /
                    ("tolvarine-" + std::to_string(GetCurrentProcessId()));
    // What an interrupted run with our id has left.
    static_cast<void>(RemoveTree(path.u16string()));
    return path;
  }();
  fs::create_directories(root);
  return root;
}

UpdateContents UsualContents() {
  return {.installed = {{"Tolvarine.exe", Application("1")},
                        {"bin/core.dll", "core 1"},
                        {"bin/old.dll", "old"},
                        {"same.txt", "the same"},
                        {"settings.ini", "the user's own"}},
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
  layout = staging::LayoutOf((root / "state").u16string(), arguments.install_key, kUpdateId);
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
  arguments.source_inventory = staging::InventoryOf(layout.stages);
  arguments.managed_deletions = contents.deletions;
  made_at_ = TimePrefix();
  stamps_ = StampsNow();
}

// A program that was restarted may take a moment to end.
RealUpdate::~RealUpdate() {
  static_cast<void>(Eventually([&] { return RemoveTree(root.u16string()).error == 0; }));
  std::error_code error;
  fs::remove(ScratchRoot(), error);  // Once it is empty.
}

void RealUpdate::WaitFor(const RealProcess& process) {
  arguments.wait_pid = process.id();
  arguments.wait_process_created_at = process.CreationTime();
  arguments.has_wait_process_created_at = true;
}

std::u16string RealUpdate::CommandLine() const {
  return staging::CommandLineOf(ProgramPath("TolvarineUpdater.exe").u16string(), arguments);
}

std::unique_ptr<RealProcess> RealUpdate::Start() const {
  return std::make_unique<RealProcess>(CommandLine());
}

void RealUpdate::RunEngine(const TransactionHook& hook) const {
  const TransactionRequest request = {.source = arguments.source,
                                      .target = arguments.target,
                                      .transaction = layout.transaction,
                                      .inventory = arguments.source_inventory,
                                      .recovery_policy = RecoveryPolicy::ResumeForward,
                                      .crash_hook = hook,
                                      .managed_deletions = arguments.managed_deletions};
  try {
    static_cast<void>(RunTransaction(request, nullptr));
  } catch (const SimulatedCrash&) {
    // The disk is left as by a crash, which is what it was called for.
  }
}

TransactionPhase RealUpdate::SavedPhase() const {
  const JournalLoadResult loaded = LoadJournal(layout.transaction);
  if (loaded.state == JournalLoadState::Corrupt) return TransactionPhase::Corrupt;
  return loaded.journal ? loaded.journal->phase : TransactionPhase::None;
}

Files RealUpdate::Target() const {
  Files files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(target)) {
    const std::string name = NameOf(entry.path().lexically_relative(target));
    if (entry.is_directory()) {
      files[name + "/"];
    } else if (name != "log.txt") {
      files[name] = Summary(ReadBytes(entry.path()));
    }
  }
  return files;
}

Files RealUpdate::Baseline() const { return AsReadBack(contents.installed); }

Files RealUpdate::Installed() const {
  Files files = contents.installed;
  for (const Path& path : contents.deletions) files.erase(NameOf(path));
  for (const auto& [name, content] : contents.release) files[name] = content;
  return AsReadBack(files);
}

void RealUpdate::ExpectInstalled() const {
  EXPECT_EQ(Started(target), Utf8(target.u16string() + u"\n" + application.u16string() + u"\n2"));
  EXPECT_EQ(Target(), Installed());
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

std::string RealUpdate::ShortName(std::string name) const {
  const std::pair<fs::path, const char*> words[] = {{target, "target"},
                                                    {release, "release"},
                                                    {layout.workspace, "workspace"},
                                                    {layout.state, "state"}};
  for (const auto& [path, word] : words) {
    const std::string long_name = NameOf(path.lexically_relative(ScratchRoot()));
    if (name.starts_with(long_name)) return name.replace(0, long_name.size(), word);
  }
  return name;
}

RealUpdate::Stamps RealUpdate::StampsNow() const {
  Stamps stamps;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = ShortName(NameOf(entry.path().lexically_relative(ScratchRoot())));
    if (entry.is_directory()) {
      stamps.emplace(name + "/", 0);
    } else {
      stamps.emplace(name, LastWriteTime(entry.path()));
    }
  }
  return stamps;
}

std::string RealUpdate::Log() const {
  const std::string log = ReadBytes(target / "log.txt");
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

std::string RealUpdate::Started(const fs::path& directory) const {
  const fs::path path = directory / "started.txt";
  // It cannot be opened while it is being renamed.
  if (!Eventually([&] { return std::ifstream(path).is_open(); })) return "nothing was started";
  const std::string bytes = ReadBytes(path);
  fs::remove(path);
  std::u16string text(bytes.size() / sizeof(char16_t), u'\0');
  std::memcpy(text.data(), bytes.data(), text.size() * sizeof(char16_t));
  return Utf8(text);
}

std::string LogRecord(std::string_view level, std::string message) {
  for (std::size_t at = message.find('\n'); at != std::string::npos; at = message.find('\n')) {
    message.replace(at, 1, "\\n");
  }
  return std::string("[").append(level).append("] [Updater] ").append(message) + "\r\n";
}

}  // namespace tolvarine::updater::end_to_end
