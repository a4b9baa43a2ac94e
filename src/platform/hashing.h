// The hash functions of bcrypt.dll. Each returns a signed status, negative for a failure, and
// leaves no code in GetLastError().

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

using Status = std::int32_t;

// 0 is no handle.
using AlgorithmHandle = std::uintptr_t;
using HashHandle = std::uintptr_t;

// Opens the default implementation, with no flags.
Status BCryptOpenAlgorithmProvider(AlgorithmHandle* algorithm, const char16_t* name);
Status BCryptCloseAlgorithmProvider(AlgorithmHandle algorithm);

// Stores the property in `output`, which has room for `size` bytes, and its size in `*written`.
Status BCryptGetProperty(AlgorithmHandle algorithm, const char16_t* property, void* output,
                         std::uint32_t size, std::uint32_t* written);

// `object` is memory for the hash, `size` bytes that must outlive it. No secret, no flags.
Status BCryptCreateHash(AlgorithmHandle algorithm, HashHandle* hash, void* object,
                        std::uint32_t size);
Status BCryptHashData(HashHandle hash, const void* data, std::uint32_t size);
Status BCryptFinishHash(HashHandle hash, void* digest, std::uint32_t size);
Status BCryptDestroyHash(HashHandle hash);

}  // namespace tolvarine::updater::platform
