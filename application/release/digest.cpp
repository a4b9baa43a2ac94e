#include "release/digest.h"

#include <array>

#include "files/sha256.h"
#include "text/hex.h"

namespace tolvarine::updater::application {

std::string Sha256DigestOfBytes(std::string_view bytes) {
  Sha256 sha256;
  sha256.Begin();
  sha256.Add(bytes);
  const std::array<char, kSha256Size> digest = sha256.Finish();
  return {digest.data(), digest.size()};
}

std::string Sha256OfBytes(std::string_view bytes) { return EncodeHex(Sha256DigestOfBytes(bytes)); }

}  // namespace tolvarine::updater::application
