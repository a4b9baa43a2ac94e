#include "files/sha256.h"

#include <stdexcept>
#include <string>

#include "text/decimal.h"

namespace tolvarine::updater {
namespace {

constexpr std::string_view kCannotInitialize = "Could not initialize SHA-256";
constexpr std::string_view kCannotHash = "Could not hash release source";

}  // namespace

Sha256::~Sha256() {
  if (hash_ != 0) platform::BCryptDestroyHash(hash_);
  if (algorithm_ != 0) platform::BCryptCloseAlgorithmProvider(algorithm_);
}

void Sha256::Begin() {
  ThrowIfBcryptFailed(platform::BCryptOpenAlgorithmProvider(&algorithm_, u"SHA256"),
                      kCannotInitialize);
  std::uint32_t length = 0;
  std::uint32_t written = 0;
  ThrowIfBcryptFailed(
      platform::BCryptGetProperty(algorithm_, u"ObjectLength", &length, sizeof length, &written),
      kCannotInitialize);
  object_.resize(length);
  ThrowIfBcryptFailed(platform::BCryptCreateHash(algorithm_, &hash_, object_.data(), length),
                      kCannotInitialize);
}

void Sha256::Add(std::string_view bytes) {
  ThrowIfBcryptFailed(
      platform::BCryptHashData(hash_, bytes.data(), static_cast<std::uint32_t>(bytes.size())),
      kCannotHash);
}

std::array<char, kSha256Size> Sha256::Finish() {
  std::array<char, kSha256Size> digest{};
  ThrowIfBcryptFailed(platform::BCryptFinishHash(hash_, digest.data(), kSha256Size), kCannotHash);
  return digest;
}

void ThrowIfBcryptFailed(platform::Status status, std::string_view context) {
  if (status >= 0) return;
  std::string text(context);
  text.append(" (BCrypt status ");
  AppendDecimal(text, status);
  text.append(")");
  throw std::runtime_error(text);
}

}  // namespace tolvarine::updater
