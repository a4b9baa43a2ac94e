// The local clock and its zone.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

struct SystemTime {
  std::uint32_t year = 0;
  std::uint32_t month = 0;
  std::uint32_t day = 0;
  std::uint32_t hour = 0;
  std::uint32_t minute = 0;
  std::uint32_t second = 0;
  std::uint32_t milliseconds = 0;
};

void GetLocalTime(SystemTime* time);

// In minutes; a bias is UTC minus local time.
struct TimeZoneInformation {
  std::int32_t bias = 0;
  std::int32_t standard_bias = 0;
  std::int32_t daylight_bias = 0;
};

inline constexpr std::uint32_t kTimeZoneIdUnknown = 0;
inline constexpr std::uint32_t kTimeZoneIdStandard = 1;
inline constexpr std::uint32_t kTimeZoneIdDaylight = 2;

// Returns which of the biases applies: one of the values above.
std::uint32_t GetTimeZoneInformation(TimeZoneInformation* zone);

}  // namespace tolvarine::updater::platform
