#include "text/utf8.h"

#include <cstddef>
#include <cstdint>

#include "platform/text.h"
#include "text/conversion.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

std::int32_t AppendUtf8(std::string& text, std::u16string_view wide, std::uint32_t flags) {
  return AppendConverted(text, wide.size(),
                         [&](std::int32_t length, char* output, std::int32_t size) {
                           return platform::WideCharToMultiByte(platform::kCpUtf8, flags,
                                                                wide.data(), length, output, size,
                                                                /*used_default=*/nullptr);
                         });
}

}  // namespace

std::string Utf8FromUtf16(std::u16string_view wide) {
  std::string utf8;
  AppendUtf8(utf8, wide);
  return utf8;
}

void AppendUtf8(std::string& text, std::u16string_view wide) {
  if (wide.empty()) return;  // The platform refuses a length of 0.
  if (AppendUtf8(text, wide, platform::kWcErrInvalidChars) == 0) ThrowLastError();
}

std::string LenientUtf8(std::u16string_view wide) {
  std::string utf8;
  const std::int32_t written = AppendUtf8(utf8, wide, 0);
  return static_cast<std::size_t>(written) == utf8.size() ? utf8 : std::string();
}

std::u16string Utf16FromUtf8(std::string_view utf8) {
  std::u16string wide;
  if (utf8.empty()) return wide;
  const auto convert = [&](std::int32_t length, char16_t* output, std::int32_t size) {
    return platform::MultiByteToWideChar(platform::kCpUtf8, platform::kMbErrInvalidChars,
                                         utf8.data(), length, output, size);
  };
  if (AppendConverted(wide, utf8.size(), convert) == 0) ThrowLastError();
  return wide;
}

}  // namespace tolvarine::updater
