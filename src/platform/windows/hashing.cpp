#include "platform/hashing.h"

#include "platform/windows/native.h"

// After the system's header, whose types it needs.
#include <bcrypt.h>

namespace tolvarine::updater::platform {

namespace {

constexpr ULONG kNoFlags = 0;

BCRYPT_ALG_HANDLE NativeAlgorithm(AlgorithmHandle algorithm) {
  return reinterpret_cast<BCRYPT_ALG_HANDLE>(algorithm);
}

BCRYPT_HASH_HANDLE NativeHash(HashHandle hash) {
  return reinterpret_cast<BCRYPT_HASH_HANDLE>(hash);
}

}  // namespace

Status BCryptOpenAlgorithmProvider(AlgorithmHandle* algorithm, const char16_t* name) {
  BCRYPT_ALG_HANDLE native = nullptr;
  const Status status = ::BCryptOpenAlgorithmProvider(&native, Wide(name),
                                                      /*pszImplementation=*/nullptr, kNoFlags);
  *algorithm = reinterpret_cast<AlgorithmHandle>(native);
  return status;
}

Status BCryptCloseAlgorithmProvider(AlgorithmHandle algorithm) {
  return ::BCryptCloseAlgorithmProvider(NativeAlgorithm(algorithm), kNoFlags);
}

Status BCryptGetProperty(AlgorithmHandle algorithm, const char16_t* property, void* output,
                         std::uint32_t size, std::uint32_t* written) {
  ULONG count = 0;
  const Status status = ::BCryptGetProperty(NativeAlgorithm(algorithm), Wide(property),
                                            static_cast<PUCHAR>(output), size, &count, kNoFlags);
  *written = count;
  return status;
}

Status BCryptCreateHash(AlgorithmHandle algorithm, HashHandle* hash, void* object,
                        std::uint32_t size) {
  BCRYPT_HASH_HANDLE native = nullptr;
  const Status status =
      ::BCryptCreateHash(NativeAlgorithm(algorithm), &native, static_cast<PUCHAR>(object), size,
                         /*pbSecret=*/nullptr, /*cbSecret=*/0, kNoFlags);
  *hash = reinterpret_cast<HashHandle>(native);
  return status;
}

Status BCryptHashData(HashHandle hash, const void* data, std::uint32_t size) {
  // The system declares the data as writable but only reads it.
  const auto bytes = static_cast<PUCHAR>(const_cast<void*>(data));
  return ::BCryptHashData(NativeHash(hash), bytes, size, kNoFlags);
}

Status BCryptFinishHash(HashHandle hash, void* digest, std::uint32_t size) {
  return ::BCryptFinishHash(NativeHash(hash), static_cast<PUCHAR>(digest), size, kNoFlags);
}

Status BCryptDestroyHash(HashHandle hash) {
  return ::BCryptDestroyHash(NativeHash(hash));
}

}  // namespace tolvarine::updater::platform
