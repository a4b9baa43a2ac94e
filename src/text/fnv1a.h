// FNV-1a with 64 bits (the Fowler-Noll-Vo hash, variant 1a): the checksum of a journal, and the
// fingerprint of an installed file and of its baseline copy. It detects damage; it does not
// authenticate.

#pragma once

#include <cstdint>
#include <string_view>

namespace tolvarine::updater {

inline constexpr std::uint64_t kFnv1aOffsetBasis = 0xCBF29CE484222325;
inline constexpr std::uint64_t kFnv1aPrime = 0x100000001B3;

// The hash of `bytes`; with `hash`, that of the bytes that `hash` covers, followed by `bytes`.
[[nodiscard]] constexpr std::uint64_t Fnv1a64(std::string_view bytes,
                                              std::uint64_t hash = kFnv1aOffsetBasis) {
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * kFnv1aPrime;
  return hash;
}

}  // namespace tolvarine::updater
