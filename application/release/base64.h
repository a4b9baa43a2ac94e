// Base64 with the standard alphabet and padding (RFC 4648, section 4).

#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tolvarine::updater::application {

[[nodiscard]] std::string EncodeBase64(std::string_view bytes);

// The bytes of exactly what EncodeBase64 writes; nothing for any other text, white space and unused
// bits that are not zero included.
[[nodiscard]] std::optional<std::string> DecodeBase64(std::string_view text);

}  // namespace tolvarine::updater::application
