// The volumes of a simulated computer, with what decides how a path leads to one of them.

#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {

struct DiskSet {
  std::deque<Volume> volumes;
  // From which relative paths are resolved.
  std::u16string current_directory = u"C:\\";
  // True while a write-through rename is on stable storage when the call returns.
  bool write_through_holds = true;

  // Adds an empty volume with this drive letter.
  Volume& AddVolume(char16_t drive);

  // Throws std::logic_error where there is no such volume.
  [[nodiscard]] Volume& volume(char16_t drive);

  // Puts everything on stable storage.
  void Settle();

  // Rises with every change on any volume, in the cache or on stable storage.
  [[nodiscard]] std::uint64_t version() const;
};

}  // namespace tolvarine::updater::simulated
