// The signature functions of bcrypt.dll. The algorithm is opened with BCryptOpenAlgorithmProvider
// (platform/hashing.h) under the name "ECDSA_P256". Each returns a signed status: negative is
// failure. They leave no code in GetLastError().

#pragma once

#include <cstdint>

#include "platform/hashing.h"

namespace tolvarine::updater::platform {

// Null when there is none.
using KeyHandle = std::uintptr_t;

// The head of a public key's blob on P-256: this number and the size of a coordinate, 32, both 32
// bits wide and little-endian. The coordinates x and y follow, big-endian.
inline constexpr std::uint32_t kBCryptEcdsaPublicP256Magic = 0x31534345;

// The status for a signature that does not belong to the hash and the key.
inline constexpr Status kStatusInvalidSignature = static_cast<Status>(0xC000A000);

// Imports a blob of type "ECCPUBLICBLOB". Another head or size, and a point that is not on the
// curve, are refused with a negative status; Wine imports such a point, and nothing verifies by it.
Status BCryptImportKeyPair(AlgorithmHandle algorithm, KeyHandle* key, const void* blob,
                           std::uint32_t size);

// 0 where the signature, 64 bytes r and s, both big-endian, belongs to the hash and the key;
// negative otherwise. The caller checks the signature's size: Wine takes 65 bytes, too.
Status BCryptVerifySignature(KeyHandle key, const void* hash, std::uint32_t hash_size,
                             const void* signature, std::uint32_t signature_size);

Status BCryptDestroyKey(KeyHandle key);

}  // namespace tolvarine::updater::platform
