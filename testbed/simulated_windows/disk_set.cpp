#include "simulated_windows/disk_set.h"

#include <algorithm>
#include <stdexcept>

namespace tolvarine::updater::simulated {

Volume& DiskSet::AddVolume(char16_t drive) {
  Volume& volume = volumes.emplace_back();
  volume.drive = drive;
  volume.device = u"\\Device\\HarddiskVolume";
  volume.device.push_back(static_cast<char16_t>(u'0' + volumes.size()));
  volume.serial_number = 0x5EED0000 + static_cast<std::uint32_t>(volumes.size());
  return volume;
}

Volume& DiskSet::volume(char16_t drive) {
  const auto found = std::ranges::find(volumes, drive, &Volume::drive);
  if (found == volumes.end()) throw std::logic_error("no such volume");
  return *found;
}

void DiskSet::Settle() {
  for (Volume& volume : volumes) volume.Settle();
}

std::uint64_t DiskSet::version() const {
  std::uint64_t version = 0;
  for (const Volume& volume : volumes) version += volume.version();
  return version;
}

}  // namespace tolvarine::updater::simulated
