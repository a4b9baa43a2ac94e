#include "platform/time.h"

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

static_assert(kTimeZoneIdUnknown == TIME_ZONE_ID_UNKNOWN);
static_assert(kTimeZoneIdStandard == TIME_ZONE_ID_STANDARD);
static_assert(kTimeZoneIdDaylight == TIME_ZONE_ID_DAYLIGHT);

void GetLocalTime(SystemTime* time) {
  SYSTEMTIME native = {};
  ::GetLocalTime(&native);
  time->year = native.wYear;
  time->month = native.wMonth;
  time->day = native.wDay;
  time->hour = native.wHour;
  time->minute = native.wMinute;
  time->second = native.wSecond;
  time->milliseconds = native.wMilliseconds;
}

std::uint32_t GetTimeZoneInformation(TimeZoneInformation* zone) {
  TIME_ZONE_INFORMATION native = {};
  const std::uint32_t id = ::GetTimeZoneInformation(&native);
  zone->bias = native.Bias;
  zone->standard_bias = native.StandardBias;
  zone->daylight_bias = native.DaylightBias;
  return id;
}

}  // namespace tolvarine::updater::platform
