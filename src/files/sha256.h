// SHA-256 by bcrypt.dll, block by block.

#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/hashing.h"

namespace tolvarine::updater {

inline constexpr std::uint32_t kSha256Size = 32;  // Bytes.

// One digest. The provider is opened for each one; nothing is kept between them. Every operation
// throws std::runtime_error where the library's does not succeed.
class Sha256 {
 public:
  // A constructor that threw would leave no destructor to close what it had opened, so that the
  // first steps are Begin's.
  Sha256() = default;
  Sha256(const Sha256&) = delete;
  Sha256& operator=(const Sha256&) = delete;
  ~Sha256();

  void Begin();
  void Add(std::string_view bytes);  // At most 2^32 - 1 of them.
  [[nodiscard]] std::array<char, kSha256Size> Finish();

 private:
  std::vector<unsigned char> object_;
  platform::AlgorithmHandle algorithm_ = 0;
  platform::HashHandle hash_ = 0;
};

// Throws std::runtime_error "<context> (BCrypt status <status>)" for a negative status.
void ThrowIfBcryptFailed(platform::Status status, std::string_view context);

}  // namespace tolvarine::updater
