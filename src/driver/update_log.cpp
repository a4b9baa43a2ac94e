#include "driver/update_log.h"

#include <cstddef>
#include <cstdint>
#include <string>

#include "files/unique_handle.h"
#include "platform/files.h"
#include "platform/time.h"
#include "text/utf8.h"

namespace tolvarine::updater {
namespace {

constexpr std::int64_t kMinutesPerHour = 60;

std::u16string Escaped(std::u16string_view message) {
  std::u16string text;
  text.reserve(message.size());
  for (const char16_t unit : message) {
    if (unit == u'\r') {
      text.append(u"\\r");
    } else if (unit == u'\n') {
      text.append(u"\\n");
    } else {
      text.push_back(unit);
    }
  }
  return text;
}

// At least `width` digits, with leading zeros.
void AppendPadded(std::u16string& text, std::uint32_t number, std::size_t width) {
  std::u16string digits;
  for (; number != 0 || digits.size() < width; number /= 10) {
    digits.insert(digits.begin(), static_cast<char16_t>(u'0' + number % 10));
  }
  text.append(digits);
}

// The minutes by which local time is ahead of UTC. The fields of the zone are 32-bit; their sum is
// formed in 64 bits, since damaged zone data may hold any value.
std::int64_t OffsetFromUtc() {
  platform::TimeZoneInformation zone;
  const std::uint32_t id = platform::GetTimeZoneInformation(&zone);
  std::int64_t bias = zone.bias;
  if (id == platform::kTimeZoneIdStandard) bias += zone.standard_bias;
  if (id == platform::kTimeZoneIdDaylight) bias += zone.daylight_bias;
  return -bias;
}

void AppendOffset(std::u16string& text, std::int64_t offset) {
  const std::int64_t minutes = offset < 0 ? -offset : offset;
  text.push_back(offset < 0 ? u'-' : u'+');
  AppendPadded(text, static_cast<std::uint32_t>(minutes / kMinutesPerHour), 2);
  text.push_back(u':');
  AppendPadded(text, static_cast<std::uint32_t>(minutes % kMinutesPerHour), 2);
}

std::u16string Prefix(std::u16string_view level) {
  platform::SystemTime now;
  platform::GetLocalTime(&now);
  std::u16string text;
  const auto append = [&](char16_t before, std::uint32_t number, std::size_t width) {
    text.push_back(before);
    AppendPadded(text, number, width);
  };
  append(u'[', now.year, 4);
  append(u'-', now.month, 2);
  append(u'-', now.day, 2);
  append(u' ', now.hour, 2);
  append(u':', now.minute, 2);
  append(u':', now.second, 2);
  append(u'.', now.milliseconds, 3);
  text.push_back(u' ');
  AppendOffset(text, OffsetFromUtc());
  text.append(u"] [").append(level).append(u"] [Updater] ");
  return text;
}

// Several processes may append. The access right makes each write go to the end of the file, and a
// single write per record keeps records whole.
void AppendToLog(const std::string& record) {
  const FileHandle file(platform::CreateFileW(UpdateLogPath().c_str(), platform::kFileAppendData,
                                              platform::kFileShareAll, platform::kOpenAlways,
                                              platform::kFileAttributeNormal));
  // The calls of the platform return either value for a failed open.
  if (!file || file.get() == platform::kNullHandle) return;
  std::uint32_t written = 0;
  platform::WriteFile(file.get(), record.data(), static_cast<std::uint32_t>(record.size()),
                      &written);
}

}  // namespace

Path& UpdateLogPath() {
  static Path path;
  return path;
}

void WriteUpdateLog(std::u16string_view level, std::u16string_view message) noexcept {
  if (UpdateLogPath().empty()) return;
  try {
    const std::u16string text = Escaped(message);
    const std::string record = LenientUtf8(Prefix(level) + text + u"\r\n");
    if (!record.empty()) AppendToLog(record);
  } catch (...) {
    // The log must not cause a failure: the record is dropped.
  }
}

}  // namespace tolvarine::updater
