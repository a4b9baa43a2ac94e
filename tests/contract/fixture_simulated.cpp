#include "contract/fixture.h"
#include "simulated_windows/computer.h"

namespace tolvarine::updater::contract {

using simulated::Computer;

namespace {

std::u16string OwnImage(const Computer& computer) {
  return computer.processes.by_id.at(computer.processes.own_id).image;
}

}  // namespace

bool OnWine(WineVersions) { return false; }

bool RunsAsHostRoot() { return false; }

Scratch MakeScratch() {
  const Path root = u"C:\\Users\\Person\\Scratch 1";
  auto computer = std::make_shared<Computer>();
  computer->MakeCurrent();
  computer->disk.MakeDirectory(root);
  // The program that runs, and a copy that is started ends after a moment.
  computer->disk.WriteFile(OwnImage(*computer), "program");
  computer->processes.on_create = [&processes = computer->processes,
                                   &clock = computer->clock](const auto& created) {
    processes.by_id[created.id].exits_after_ms = clock.elapsed_ms + 100;
  };
  return {root, computer};
}

void MakeHardLink(const Path& existing, const Path& path) {
  Computer::Current().disk.MakeHardLink(existing, path);
}

void SetAttributes(const Path& path, std::uint32_t attributes) {
  Computer::Current().disk.SetAttributes(path, attributes);
}

OtherProcess StartProcess() {
  constexpr std::uint32_t kId = 4242;
  constexpr std::uint64_t kCreationTime = 134'000'000'000'000'007;
  Computer& computer = Computer::Current();
  simulated::Process& process = computer.processes.by_id[kId];
  process.creation_time = kCreationTime;
  process.image = OwnImage(computer);
  return {.id = kId,
          .end = [&] { process.exits_after_ms = computer.clock.elapsed_ms; },
          .forget = [&] { process.gone = true; }};
}

std::function<void(Leaving)> HoldElsewhere(const std::u16string& name) {
  auto& holders = Computer::Current().processes.mutex_holders;
  holders[name] = {};
  return [&holders, name](Leaving how) {
    holders[name].dies = true;
    if (how == Leaving::kReleasing) holders.erase(name);
  };
}

}  // namespace tolvarine::updater::contract
