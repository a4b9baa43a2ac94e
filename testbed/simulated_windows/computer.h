// The simulated Windows: one computer with its disks, processes, mutexes, person and clock, on
// which the program runs natively through the same calls that it makes of the real one.
//
// The calls of `platform/` act on the computer that is current. A test makes a computer, sets it up
// through the members below, makes it current and runs the program. What the program did is read
// back the same way.

#pragma once

#include <cstdint>
#include <deque>
#include <memory>

#include "simulated_windows/call_control.h"
#include "simulated_windows/disk_editor.h"
#include "simulated_windows/disk_set.h"
#include "simulated_windows/surroundings.h"

namespace tolvarine::updater::simulated {

class FileSystem;
class KernelObjects;

class Computer {
 public:
  // A computer with one volume, C:, and a clock that shows 2026-03-01 14:05:09.042, UTC+1.
  Computer();
  ~Computer();
  Computer(const Computer&) = delete;
  Computer& operator=(const Computer&) = delete;

  // The computer that the calls act on: the one that was made current last. Throws std::logic_error
  // where there is none.
  static Computer& Current();
  void MakeCurrent();

  DiskSet disks;

 private:
  // Declared before `disk`, which refers to them, so that they are constructed first.
  std::unique_ptr<FileSystem> files_;
  std::unique_ptr<KernelObjects> objects_;

 public:
  DiskEditor disk;    // Edits and reads what is on `disks`.
  CallControl calls;  // Faults, trace and power.
  ProcessTable processes;
  Registry registry;
  Desktop desktop;
  Clock clock;
  Locale locale;
  std::uint32_t last_error = 0;

  // The power comes back. The volumes are what Volume::CutPower left; handles, mutexes, processes,
  // injected faults, counts and records are gone.
  void Restart();
  // The same with other volumes.
  void Restart(std::deque<Volume> volumes);

  // For the calls themselves.
  [[nodiscard]] FileSystem& files() { return *files_; }
  [[nodiscard]] const FileSystem& files() const { return *files_; }
  [[nodiscard]] KernelObjects& objects() { return *objects_; }
};

}  // namespace tolvarine::updater::simulated
