#include "release/public_key.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include "files/sha256.h"
#include "platform/hashing.h"
#include "release/base64.h"
#include "release/digest.h"
#include "system/signatures.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::string_view kPemBegin = "-----BEGIN PUBLIC KEY-----";
constexpr std::string_view kPemEnd = "-----END PUBLIC KEY-----";

// The DER of a SubjectPublicKeyInfo up to the point: id-ecPublicKey, prime256v1, and a bit string
// that begins with 4, an uncompressed point. For this curve and form it is always the same.
constexpr std::string_view kPointPrefix(
    "\x30\x59\x30\x13\x06\x07\x2a\x86\x48\xce\x3d\x02\x01\x06\x08\x2a\x86\x48\xce\x3d\x03\x01\x07"
    "\x03\x42\x00\x04",
    27);

// The head of a BCRYPT_ECCKEY_BLOB: BCRYPT_ECDSA_PUBLIC_P256_MAGIC and the size of a coordinate.
constexpr std::string_view kBlobHead("ECS1\x20\x00\x00\x00", 8);

constexpr char kDerSequence = 0x30;
constexpr char kDerInteger = 0x02;
constexpr std::size_t kShortDerLength = 0x80;

[[noreturn]] void RefuseKey() {
  throw std::runtime_error(
      "The public key is not a PEM text of one P-256 key, as \"openssl ec -pubout\" writes it.");
}

[[noreturn]] void RefuseSignature() {
  throw std::runtime_error(
      "The signature is not DER of two integers, as \"openssl dgst -sha256 -sign\" writes it.");
}

// Takes one element of DER off the front of `der` and returns its content.
std::string_view TakeDer(std::string_view& der, char tag) {
  if (der.size() < 2 || der[0] != tag) RefuseSignature();
  const auto length = static_cast<unsigned char>(der[1]);
  if (length >= kShortDerLength || der.size() < std::size_t{2} + length) RefuseSignature();
  const std::string_view content = der.substr(2, length);
  der.remove_prefix(std::size_t{2} + length);
  return content;
}

// A positive integer in as few bytes as it needs, as the coordinate's number of bytes.
std::string TakeInteger(std::string_view& der) {
  std::string_view content = TakeDer(der, kDerInteger);
  const auto negative = [](char byte) { return (static_cast<unsigned char>(byte) & 0x80U) != 0; };
  if (content.empty() || negative(content[0])) RefuseSignature();
  if (content[0] == 0) {
    if (content.size() == 1 || !negative(content[1])) RefuseSignature();
    content.remove_prefix(1);
  }
  if (content.size() > kCoordinateSize) RefuseSignature();
  return std::string(kCoordinateSize - content.size(), '\0').append(content);
}

// Owns the provider and a key of it.
class VerificationKey {
 public:
  VerificationKey() = default;
  VerificationKey(const VerificationKey&) = delete;
  VerificationKey& operator=(const VerificationKey&) = delete;
  ~VerificationKey() {
    if (key_ != 0) platform::BCryptDestroyKey(key_);
    if (algorithm_ != 0) platform::BCryptCloseAlgorithmProvider(algorithm_);
  }

  // False where the point is refused.
  [[nodiscard]] bool Import(const PublicKey& key) {
    ThrowIfBcryptFailed(platform::BCryptOpenAlgorithmProvider(&algorithm_, u"ECDSA_P256"),
                        "Could not initialize ECDSA");
    const std::string blob = std::string(kBlobHead).append(key.point.data(), key.point.size());
    return platform::BCryptImportKeyPair(algorithm_, &key_, blob.data(),
                                         static_cast<std::uint32_t>(blob.size())) >= 0;
  }

  [[nodiscard]] bool Verify(std::string_view digest, std::string_view signature) const {
    return platform::BCryptVerifySignature(
               key_, digest.data(), static_cast<std::uint32_t>(digest.size()), signature.data(),
               static_cast<std::uint32_t>(signature.size())) >= 0;
  }

 private:
  platform::AlgorithmHandle algorithm_ = 0;
  platform::KeyHandle key_ = 0;
};

}  // namespace

PublicKey ParsePublicKey(std::string_view pem) {
  const std::size_t begin = pem.find(kPemBegin);
  if (begin == std::string_view::npos) RefuseKey();
  const std::size_t start = begin + kPemBegin.size();
  const std::size_t end = pem.find(kPemEnd, start);
  if (end == std::string_view::npos || pem.find(kPemBegin, end) != std::string_view::npos) {
    RefuseKey();
  }
  std::string body(pem.substr(start, end - start));
  std::erase_if(body, [](char c) { return c == '\n' || c == '\r'; });
  const std::optional<std::string> der = DecodeBase64(body);
  PublicKey key;
  if (!der || der->size() != kPointPrefix.size() + key.point.size() ||
      !der->starts_with(kPointPrefix)) {
    RefuseKey();
  }
  std::ranges::copy(der->substr(kPointPrefix.size()), key.point.begin());
  return key;
}

std::string KeyIdOf(const PublicKey& key) {
  constexpr std::size_t kDigits = 16;
  return Sha256OfBytes({key.point.data(), key.point.size()}).substr(0, kDigits);
}

std::string RawSignatureFromDer(std::string_view der) {
  std::string_view integers = TakeDer(der, kDerSequence);
  std::string raw = TakeInteger(integers);
  raw += TakeInteger(integers);
  if (!integers.empty() || !der.empty()) RefuseSignature();
  return raw;
}

bool VerifySignature(const PublicKey& key, std::string_view message, std::string_view signature) {
  if (signature.size() != kSignatureSize) return false;
  VerificationKey verification;
  if (!verification.Import(key)) return false;
  return verification.Verify(Sha256DigestOfBytes(message), signature);
}

}  // namespace tolvarine::updater::application
