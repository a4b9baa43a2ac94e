#include "contract/fixture.h"
#include "platform/simulated/world.h"

namespace tolvarine::updater::contract {

using simulated::World;

bool OnWine() { return false; }

bool OnWineAsRoot() { return false; }

Scratch MakeScratch() {
  const Path root = u"C:\\Users\\Person\\Scratch 1";
  auto world = std::make_shared<World>();
  world->MakeCurrent();
  world->MakeDirectory(root);
  return {root, world};
}

void MakeHardLink(const Path& existing, const Path& path) {
  World::Current().MakeHardLink(existing, path);
}

void SetAttributes(const Path& path, std::uint32_t attributes) {
  World::Current().SetAttributes(path, attributes);
}

OtherProcess StartProcess() {
  constexpr std::uint32_t kId = 4242;
  constexpr std::uint64_t kCreationTime = 134'000'000'000'000'007;
  World& world = World::Current();
  simulated::Process& process = world.processes[kId];
  process.creation_time = kCreationTime;
  return {.id = kId,
          .end = [&] { process.exits_after_ms = world.elapsed_ms; },
          .forget = [&] { process.gone = true; }};
}

std::function<void(Leaving)> HoldElsewhere(const std::u16string& name) {
  auto& holders = World::Current().mutex_holders;
  holders[name] = {};
  return [&holders, name](Leaving how) {
    holders[name].dies = true;
    if (how == Leaving::kReleasing) holders.erase(name);
  };
}

}  // namespace tolvarine::updater::contract
