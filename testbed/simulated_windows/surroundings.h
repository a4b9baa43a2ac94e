// What surrounds the program on a simulated computer: other processes, the desktop with its user,
// the clock and the language settings. Tests set these and read them back.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/handles.h"
#include "platform/time.h"

namespace tolvarine::updater::simulated {

struct Process {
  std::uint64_t creation_time = 0;
  std::optional<std::uint64_t> exits_after_ms{};  // From the computer's start; never if absent.
  std::uint32_t open_error = 0;                   // What OpenProcess fails with, if not 0.
  bool gone = false;                              // Ended and closed by everybody: 87.
  std::u16string image{};                         // The full path of its program.
  std::u16string application_name{};              // As a person knows it; may be empty.
  std::optional<std::uint32_t> job_limits{};      // Of its job; it is in none if absent.
  bool elevated = false;
  std::uint32_t exit_code = 0;  // Once it has ended.
};

// How another process holds a mutex.
struct MutexHolder {
  std::optional<std::uint64_t> releases_after_ms{};  // From the computer's start; never if absent.
  bool dies = false;                                 // Abandons the mutex instead.
};

// A start by CreateProcessW, with its arguments; a null directory is empty here.
struct CreatedProcess {
  std::uint32_t id = 0;
  std::u16string application;
  std::u16string command_line;
  std::uint32_t flags = 0;
  std::u16string directory;
};

struct ProcessTable {
  std::uint32_t own_id = 4000;  // Of the program that runs; its record survives a restart.
  std::map<std::uint32_t, Process> by_id{
      {own_id,
       {.creation_time = 134'000'000'000'000'000,
        .image = u"C:\\Program Files\\Tolvarine\\TolvarineUpdater.exe"}}};
  std::vector<CreatedProcess> created;
  // Runs at the end of a successful CreateProcessW. A created process runs until its record says
  // otherwise.
  std::function<void(const CreatedProcess&)> on_create;
  // Which process a handle of DiskEditor::Hold belongs to, for the restart manager.
  std::map<platform::Handle, std::uint32_t> file_holders;
  std::map<std::u16string, MutexHolder> mutex_holders;          // By name.
  std::map<std::u16string, std::uint32_t> mutex_create_errors;  // What CreateMutexW fails with.
  std::optional<std::uint32_t> terminated_with;  // By TerminateProcess on this process.
};

struct RegistryValue {
  std::u16string name;
  std::u16string text;
};

// The current user's part of the registry: keys by path and values by name, both as FoldName gives
// them. Computer::Restart takes what was flushed last, unless the system has written the rest by
// itself before the power was cut.
struct Registry {
  using Keys = std::map<std::u16string, std::map<std::u16string, RegistryValue>>;
  Keys values;
  Keys durable;
  bool written_by_itself = false;
};

struct Box {
  std::u16string text;
  std::u16string title;
  std::uint32_t type = 0;
};

struct ShellStart {
  std::u16string verb;
  std::u16string file;
  std::u16string directory;
  std::int32_t show = 0;
};

struct Desktop {
  std::u16string command_line;
  std::vector<Box> boxes;
  std::function<void(const Box&)> on_box;
  std::int32_t pressed_button = 1;  // The result of MessageBoxW; IDOK unless a test sets another.
  std::vector<ShellStart> starts;
  // The result of ShellExecuteW; if absent, 42 for a file that exists and 2 for one that does not.
  std::optional<std::intptr_t> shell_result;
};

struct Clock {
  platform::SystemTime local_time{2026, 3, 1, 14, 5, 9, 42};
  platform::TimeZoneInformation zone{-60, 0, -60};
  std::uint32_t zone_id = platform::kTimeZoneIdStandard;
  std::uint64_t elapsed_ms = 0;  // Since the computer's start; waits advance it.
};

struct Locale {
  std::uint32_t ansi_code_page = 1252;  // 1252, 65001 or 54936.
  std::uint32_t oem_code_page = 437;
  std::uint32_t runtime_code_page = 0;  // That of the C runtime's locale "C".
  bool file_apis_ansi = true;
  std::optional<std::uint32_t> system_language = 1033;
};

}  // namespace tolvarine::updater::simulated
