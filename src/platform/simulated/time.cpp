// The clock, which stands where the world sets it, and its zone.

#include "platform/time.h"

#include "platform/simulated/answers.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Fault;
using simulated::World;

void GetLocalTime(SystemTime* time) {
  World::Current().Enter(Call::GetLocalTime);  // For the trace; it cannot fail.
  *time = World::Current().local_time;
}

std::uint32_t GetTimeZoneInformation(TimeZoneInformation* zone) {
  constexpr std::uint32_t kTimeZoneIdInvalid = 0xFFFFFFFF;
  if (const Fault* fault = World::Current().Enter(Call::GetTimeZoneInformation)) {
    return simulated::Fail(fault->code, kTimeZoneIdInvalid);
  }
  *zone = World::Current().zone;
  return World::Current().zone_id;
}

}  // namespace tolvarine::updater::platform
