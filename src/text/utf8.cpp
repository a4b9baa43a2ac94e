#include "text/utf8.h"

#include <cstdint>
#include <limits>

#include "platform/error_codes.h"
#include "platform/handles.h"
#include "platform/text.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

// The platform counts in signed 32-bit numbers.
std::int32_t CheckedLength(std::size_t length) {
  if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw SystemError(platform::kErrorInvalidParameter);
  }
  return static_cast<std::int32_t>(length);
}

}  // namespace

std::string Utf8FromUtf16(std::u16string_view wide) {
  std::string utf8;
  AppendUtf8(utf8, wide);
  return utf8;
}

void AppendUtf8(std::string& text, std::u16string_view wide) {
  if (wide.empty()) return;
  const std::int32_t length = CheckedLength(wide.size());
  const auto convert = [&](char* output, std::int32_t size) {
    return platform::WideCharToMultiByte(platform::kCpUtf8, platform::kWcErrInvalidChars,
                                         wide.data(), length, output, size, nullptr);
  };
  const std::int32_t size = convert(nullptr, 0);
  if (size <= 0) ThrowLastError();
  const std::size_t start = text.size();
  text.resize(start + static_cast<std::size_t>(size));
  if (convert(text.data() + start, size) > 0) return;
  text.resize(start);
  ThrowLastError();
}

std::u16string Utf16FromUtf8(std::string_view utf8) {
  if (utf8.empty()) return {};
  const std::int32_t length = CheckedLength(utf8.size());
  const auto convert = [&](char16_t* output, std::int32_t size) {
    const std::int32_t written = platform::MultiByteToWideChar(
        platform::kCpUtf8, platform::kMbErrInvalidChars, utf8.data(), length, output, size);
    if (written <= 0) ThrowLastError();
    return written;
  };
  const std::int32_t size = convert(nullptr, 0);
  std::u16string wide(static_cast<std::size_t>(size), u'\0');
  convert(wide.data(), size);
  return wide;
}

}  // namespace tolvarine::updater
