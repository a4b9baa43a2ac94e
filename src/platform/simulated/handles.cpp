// The last error, and the closing of handles of every kind but those of searches.

#include "platform/handles.h"

#include "platform/simulated/answers.h"
#include "platform/simulated/file_system.h"
#include "platform/simulated/objects.h"
#include "platform/simulated/world.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::World;

std::uint32_t GetLastError() { return World::Current().last_error; }

void SetLastError(std::uint32_t code) { World::Current().last_error = code; }

bool CloseHandle(Handle handle) {
  World& world = World::Current();
  const simulated::OpenFile* file = world.files().Find(handle);
  const simulated::Fault* fault =
      world.Enter(Call::CloseHandle, file == nullptr ? std::u16string_view() : file->path);
  if (world.dead()) return false;
  // A close that fails has let go of the handle all the same.
  const bool closed = world.files().Close(handle) || world.objects().Close(handle);
  if (fault != nullptr) return simulated::Fail(fault->code, false);
  if (!closed) return simulated::Fail(simulated::kErrorInvalidHandle, false);
  return true;
}

}  // namespace tolvarine::updater::platform
