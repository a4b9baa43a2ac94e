// The SHA-256 of bytes in memory.

#pragma once

#include <array>
#include <string>
#include <string_view>

#include "files/sha256.h"
#include "text/hex.h"

namespace tolvarine::updater::application {

// 32 bytes.
[[nodiscard]] std::string Sha256DigestOfBytes(std::string_view bytes);

// 64 lower-case hexadecimal digits.
[[nodiscard]] std::string Sha256OfBytes(std::string_view bytes);

// The digest of Sha256::Finish as 64 lower-case hexadecimal digits.
[[nodiscard]] inline std::string HexOf(const std::array<char, kSha256Size>& digest) {
  return EncodeHex({digest.data(), digest.size()});
}

}  // namespace tolvarine::updater::application
