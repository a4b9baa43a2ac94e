#include "system/signatures.h"

#include "system/windows/library.h"

// After the system's header, whose types it needs.
#include <bcrypt.h>

namespace tolvarine::updater::platform {

static_assert(kBCryptEcdsaPublicP256Magic == BCRYPT_ECDSA_PUBLIC_P256_MAGIC);

namespace {

constexpr ULONG kNoFlags = 0;
// What every call answers where the library, or the function in it, is missing.
constexpr Status kStatusDllNotFound = static_cast<Status>(0xC0000135);

template <typename Function, typename... Arguments>
Status Call(const char* name, Arguments... arguments) {
  static const HMODULE library = SystemLibrary(L"bcrypt.dll");
  return CallByName<Function>(library, name, kStatusDllNotFound, arguments...);
}

BCRYPT_KEY_HANDLE NativeKey(KeyHandle key) { return reinterpret_cast<BCRYPT_KEY_HANDLE>(key); }

// The system declares its input as writable but only reads it.
PUCHAR Bytes(const void* data) { return static_cast<PUCHAR>(const_cast<void*>(data)); }

}  // namespace

Status BCryptImportKeyPair(AlgorithmHandle algorithm, KeyHandle* key, const void* blob,
                           std::uint32_t size) {
  BCRYPT_KEY_HANDLE native = nullptr;
  const Status status = Call<decltype(::BCryptImportKeyPair)>(
      "BCryptImportKeyPair", reinterpret_cast<BCRYPT_ALG_HANDLE>(algorithm),
      /*hImportKey=*/static_cast<BCRYPT_KEY_HANDLE>(nullptr), BCRYPT_ECCPUBLIC_BLOB, &native,
      Bytes(blob), size, kNoFlags);
  *key = reinterpret_cast<KeyHandle>(native);
  return status;
}

Status BCryptVerifySignature(KeyHandle key, const void* hash, std::uint32_t hash_size,
                             const void* signature, std::uint32_t signature_size) {
  return Call<decltype(::BCryptVerifySignature)>(
      "BCryptVerifySignature", NativeKey(key), /*pPaddingInfo=*/static_cast<void*>(nullptr),
      Bytes(hash), hash_size, Bytes(signature), signature_size, kNoFlags);
}

Status BCryptDestroyKey(KeyHandle key) {
  return Call<decltype(::BCryptDestroyKey)>("BCryptDestroyKey", NativeKey(key));
}

}  // namespace tolvarine::updater::platform
