// The hash functions of bcrypt.dll. Each returns a signed status: negative is failure. They leave
// no code in GetLastError().

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

using Status = std::int32_t;

// Null when there is none.
using AlgorithmHandle = std::uintptr_t;
using HashHandle = std::uintptr_t;

// With the default implementation and no flags.
Status BCryptOpenAlgorithmProvider(AlgorithmHandle* algorithm, const char16_t* name);
Status BCryptCloseAlgorithmProvider(AlgorithmHandle algorithm);

// Puts `*written` bytes into `output`, which has room for `size`.
Status BCryptGetProperty(AlgorithmHandle algorithm, const char16_t* property, void* output,
                         std::uint32_t size, std::uint32_t* written);

// `object` is the hash's own memory, `size` bytes that must outlive it. No secret, no flags.
Status BCryptCreateHash(AlgorithmHandle algorithm, HashHandle* hash, void* object,
                        std::uint32_t size);
Status BCryptHashData(HashHandle hash, const void* data, std::uint32_t size);
Status BCryptFinishHash(HashHandle hash, void* digest, std::uint32_t size);
Status BCryptDestroyHash(HashHandle hash);

}  // namespace tolvarine::updater::platform
