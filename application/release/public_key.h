// The keys that releases are signed with, and the verification of one signature: ECDSA on P-256
// with SHA-256 (FIPS 186-4), by bcrypt.dll.

#pragma once

#include <array>
#include <string>
#include <string_view>

namespace tolvarine::updater::application {

inline constexpr std::size_t kCoordinateSize = 32;  // Bytes.
inline constexpr std::size_t kSignatureSize = 64;   // r, then s, big-endian.

struct PublicKey {
  std::array<char, 2 * kCoordinateSize> point{};  // x, then y, big-endian.

  bool operator==(const PublicKey&) const = default;
};

// The key of a PEM text with one "PUBLIC KEY" block (RFC 7468): a SubjectPublicKeyInfo for an
// uncompressed point of P-256 (RFC 5480), as `openssl ec -pubout` writes it. Throws
// std::runtime_error for anything else. Whether the point lies on the curve shows in
// VerifySignature.
[[nodiscard]] PublicKey ParsePublicKey(std::string_view pem);

// The first 16 hexadecimal digits of the SHA-256 of x and y: a name for people and for the `keyid`
// of an envelope. It is a hint and never trusted.
[[nodiscard]] std::string KeyIdOf(const PublicKey& key);

// The 64 bytes r and s of a signature in DER (RFC 3279, section 2.2.3), as `openssl dgst -sign` and
// key services write it. Throws std::runtime_error for anything that is not strict DER of two
// positive integers below 2^256.
[[nodiscard]] std::string RawSignatureFromDer(std::string_view der);

// True where `signature` (kSignatureSize bytes) is one of `message` by `key`. False also for
// another size and for a point that is not on the curve. Throws std::runtime_error where the
// system's library cannot be used.
[[nodiscard]] bool VerifySignature(const PublicKey& key, std::string_view message,
                                   std::string_view signature);

}  // namespace tolvarine::updater::application
