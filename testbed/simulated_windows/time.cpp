// The clock and its time zone.

#include "platform/time.h"

#include "simulated_windows/call_failure.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::Fault;

void GetLocalTime(SystemTime* time) {
  Computer::Current().calls.Enter(Call::GetLocalTime);  // Counted and recorded; it cannot fail.
  *time = Computer::Current().clock.local_time;
}

std::uint32_t GetTimeZoneInformation(TimeZoneInformation* zone) {
  constexpr std::uint32_t kTimeZoneIdInvalid = 0xFFFFFFFF;
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetTimeZoneInformation)) {
    return simulated::FailCall(fault->code, kTimeZoneIdInvalid);
  }
  *zone = Computer::Current().clock.zone;
  return Computer::Current().clock.zone_id;
}

}  // namespace tolvarine::updater::platform
