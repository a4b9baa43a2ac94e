#include "simulated_windows/computer.h"

#include <stdexcept>
#include <utility>

#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::simulated {
namespace {

Computer* current_computer = nullptr;

}  // namespace

Computer::Computer()
    : files_(std::make_unique<FileSystem>(disks)),
      objects_(std::make_unique<KernelObjects>(*this)),
      disk(disks, *files_) {
  disks.AddVolume(u'C');
}

Computer::~Computer() {
  if (current_computer == this) current_computer = nullptr;
}

Computer& Computer::Current() {
  if (current_computer == nullptr) throw std::logic_error("no computer is current");
  return *current_computer;
}

void Computer::MakeCurrent() { current_computer = this; }

void Computer::Restart() {
  files_->Reset();
  objects_->Reset();
  calls.Reset();
  std::erase_if(processes.by_id,
                [&](const auto& process) { return process.first != processes.own_id; });
  if (!registry.written_by_itself) registry.values = registry.durable;
  processes.created.clear();
  processes.file_holders.clear();
  processes.mutex_holders.clear();
  desktop.boxes.clear();
  desktop.starts.clear();
  clock.elapsed_ms = 0;
  last_error = 0;
}

void Computer::Restart(std::deque<Volume> volumes) {
  disks.volumes = std::move(volumes);
  Restart();
}

}  // namespace tolvarine::updater::simulated
