// The simulated Windows: one machine with its disks, processes, mutexes, person and clock, on which
// the program runs natively through the same calls that it makes of the real one.
//
// The calls of `platform/` act on the world that is current. A test or a laboratory makes a world,
// furnishes it through the members below (which are not calls: they are not counted, cannot fail by
// plan and see no access checks), makes it current and runs the program. What the program did is
// read back the same way.
//
// Any call can be made to fail with any code at any of its occurrences, to write short, to be
// preceded by an act of somebody else, or to be the last one before the power goes. When the power
// is cut, calls throw PowerCut; those made on the way out of a scope, and those made while an
// exception is on its way, fail silently instead, and change nothing.

#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/handles.h"
#include "platform/simulated/disk.h"
#include "platform/simulated/machine.h"
#include "platform/time.h"

namespace tolvarine::updater::simulated {

class FileSystem;
class KernelObjects;

class World {
 public:
  // A machine with one volume, C:, and a clock that stands at 2026-03-01 14:05:09.042, UTC+1.
  World();
  ~World();
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // The world that the calls act on; none but the last made current counts.
  static World& Current();
  void MakeCurrent();

  // --- Disks ---------------------------------------------------------------------------------

  Volume& AddVolume(char16_t drive);
  Volume& volume(char16_t drive);
  std::deque<Volume>& volumes() { return volumes_; }
  const std::deque<Volume>& volumes() const { return volumes_; }

  // Furnishing and reading. A path is full, `\` or `/`; missing parents are made. What is made this
  // way stands in the cache like anything else, until Settle.
  void MakeDirectory(std::u16string_view path);
  void WriteFile(std::u16string_view path, std::string_view content);
  void MakeHardLink(std::u16string_view existing, std::u16string_view path);
  void MakeSymbolicLink(std::u16string_view path, std::u16string_view to, bool directory);
  void MakeJunction(std::u16string_view path, std::u16string_view to);
  void MakeReparsePoint(std::u16string_view path, std::uint32_t tag, bool directory);
  void SetAttributes(std::u16string_view path, std::uint32_t attributes);
  void Rename(std::u16string_view from, std::u16string_view to);
  void Remove(std::u16string_view path);  // A whole tree; links are not followed. May be missing.

  // Links in the middle of the path are followed, one at its end is not.
  std::optional<EntryInfo> Look(std::u16string_view path) const;
  bool Exists(std::u16string_view path) const { return Look(path).has_value(); }
  std::optional<std::string> ReadFile(std::u16string_view path) const;
  // Every path below, files and directories (these end in `\`), in order; content where a file.
  std::map<std::u16string, std::string> Tree(std::u16string_view root) const;

  // Puts everything on stable storage.
  void Settle();

  // Another process opens a file, and keeps it until Release. kInvalidHandle if it may not.
  platform::Handle Hold(std::u16string_view path, std::uint32_t access, std::uint32_t sharing);
  void Release(platform::Handle held);

  // --- Calls ---------------------------------------------------------------------------------

  void Plan(Fault fault) { faults_.push_back(std::move(fault)); }
  void ClearFaults() { faults_.clear(); }

  // Runs before every call, with its record; may furnish the world, plan faults or cut the power.
  // Calls are not made from it.
  std::function<void(const CallRecord&)> before_call;

  // Records every call in `trace`.
  bool keep_trace = false;
  std::vector<CallRecord> trace;
  std::uint64_t calls() const { return calls_; }

  // The power goes: from here on nothing changes any more. Restart() brings the machine back: no
  // handle, mutex, process, planned fault or record of what happened is left, and each volume is
  // what Volume::CutPower made of it. Boot() does the same on other disks.
  void CutPower() { dead_ = true; }
  bool dead() const { return dead_; }
  void Restart();
  void Boot(std::deque<Volume> disks);

  // Rises with every change on any disk, in the cache or on the medium.
  [[nodiscard]] std::uint64_t disk_version() const;

  // True while a write-through rename is on the medium when it returns.
  bool write_through_holds = true;

  // --- The rest of the machine ---------------------------------------------------------------

  std::map<std::uint32_t, Process> processes;
  std::map<std::u16string, MutexHolder> mutex_holders;          // By name.
  std::map<std::u16string, std::uint32_t> mutex_create_errors;  // Names held by another kind.

  std::vector<Box> boxes;
  std::function<void(const Box&)> on_box;
  std::vector<ShellStart> starts;
  // What ShellExecuteW answers; without it, 42 for a file that is there and 2 for one that is not.
  std::optional<std::intptr_t> shell_result;

  std::u16string command_line;
  std::u16string current_directory = u"C:\\";

  platform::SystemTime local_time{2026, 3, 1, 14, 5, 9, 42};
  platform::TimeZoneInformation zone{-60, 0, -60};
  std::uint32_t zone_id = platform::kTimeZoneIdStandard;
  std::uint64_t elapsed_ms = 0;  // Since the world's start; waits let it pass.

  std::uint32_t ansi_code_page = 1252;  // 1252, 65001 or 54936.
  std::uint32_t oem_code_page = 437;
  std::uint32_t runtime_code_page = 0;  // That of the C runtime's locale "C".
  bool file_apis_ansi = true;
  std::optional<std::uint32_t> system_language = 1033;

  std::uint32_t last_error = 0;
  std::optional<std::uint32_t> terminated_with;  // By TerminateProcess on this process.

  // --- For the calls themselves --------------------------------------------------------------

  // At the head of every call: counts it, lets `before_call` act, and answers with the fault that
  // is planned for it, if any. Throws PowerCut when the power is off and the caller can bear it.
  const Fault* Enter(Call call, std::u16string_view path = {});

  FileSystem& files() { return *files_; }
  const FileSystem& files() const { return *files_; }
  KernelObjects& objects() { return *objects_; }

 private:
  std::deque<Volume> volumes_;
  std::vector<Fault> faults_;
  std::array<std::uint64_t, kCallCount> occurrences_{};
  std::uint64_t calls_ = 0;
  bool dead_ = false;
  Fault dead_fault_;
  std::unique_ptr<FileSystem> files_;
  std::unique_ptr<KernelObjects> objects_;
};

}  // namespace tolvarine::updater::simulated
