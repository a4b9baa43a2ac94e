// Conversions of text by the platform, which are asked for the size of the output first.

#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>

#include "platform/error_codes.h"
#include "platform/handles.h"

namespace tolvarine::updater {

// Appends to `output` what a platform call makes of a text of `length` units. Calls
// `convert(length, buffer, size)` twice: for the size that it needs, with a null buffer and size 0,
// and for the text. A result of 0 or less is a failure of the call.
//
// Returns the number of units that the second call reports. Returns 0 on failure: `output` is then
// unchanged, and the last error holds the code of the failed call, or ERROR_INVALID_PARAMETER for a
// text that is too long for the platform's signed 32-bit lengths.
template <typename Unit, typename Convert>
[[nodiscard]] std::int32_t AppendConverted(std::basic_string<Unit>& output, std::size_t length,
                                           Convert convert) {
  if (length > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    platform::SetLastError(platform::kErrorInvalidParameter);
    return 0;
  }
  const auto input_length = static_cast<std::int32_t>(length);
  const std::int32_t size = convert(input_length, static_cast<Unit*>(nullptr), std::int32_t{0});
  if (size <= 0) return 0;
  const std::size_t start = output.size();
  output.resize(start + static_cast<std::size_t>(size));
  const std::int32_t written = convert(input_length, output.data() + start, size);
  if (written > 0) return written;
  output.resize(start);  // Releases no memory, which could change the last error.
  return 0;
}

}  // namespace tolvarine::updater
