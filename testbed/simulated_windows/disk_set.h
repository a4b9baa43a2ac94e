// The volumes of a simulated computer, with what decides how a path leads to one of them.

#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {

struct DiskSet {
  std::deque<Volume> volumes;
  // Relative paths are resolved from here.
  std::u16string current_directory = u"C:\\";
  // True while a rename with MOVEFILE_WRITE_THROUGH is on the medium when the call returns.
  bool write_through_holds = true;

  // Adds an empty volume with this drive letter.
  Volume& AddVolume(char16_t drive);

  // Throws std::logic_error where there is no such volume.
  [[nodiscard]] Volume& volume(char16_t drive);

  // Writes everything to the medium.
  void Settle();

  // Rises with every change of a volume or of what a power cut could leave of it.
  [[nodiscard]] std::uint64_t version() const;
};

}  // namespace tolvarine::updater::simulated
