#include "platform/hashing.h"

#include "platform/windows/native.h"

// It needs the types of the system's header.
#include <bcrypt.h>

namespace tolvarine::updater::platform {

namespace {

constexpr ULONG kNoFlags = 0;
// The result of every call if the library, or the function in it, is missing.
constexpr Status kStatusDllNotFound = static_cast<Status>(0xC0000135);

// bcrypt.dll is not among the libraries that the system always loads from its own directory. As an
// import it would be searched for in the program's directory first, where others may have put one.
HMODULE Library() {
  static const HMODULE library =
      ::LoadLibraryExW(L"bcrypt.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  return library;
}

// Calls a function of the library by its name and declared type.
template <typename Function, typename... Arguments>
Status Call(const char* name, Arguments... arguments) {
  // The cast to void* avoids the compiler's warning about casts between function types.
  const auto function =
      reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(Library(), name)));
  return function == nullptr ? kStatusDllNotFound : function(arguments...);
}

BCRYPT_ALG_HANDLE NativeAlgorithm(AlgorithmHandle algorithm) {
  return reinterpret_cast<BCRYPT_ALG_HANDLE>(algorithm);
}

BCRYPT_HASH_HANDLE NativeHash(HashHandle hash) {
  return reinterpret_cast<BCRYPT_HASH_HANDLE>(hash);
}

}  // namespace

Status BCryptOpenAlgorithmProvider(AlgorithmHandle* algorithm, const char16_t* name) {
  BCRYPT_ALG_HANDLE native = nullptr;
  const Status status = Call<decltype(::BCryptOpenAlgorithmProvider)>(
      "BCryptOpenAlgorithmProvider", &native, Wide(name),
      /*pszImplementation=*/static_cast<LPCWSTR>(nullptr), kNoFlags);
  *algorithm = reinterpret_cast<AlgorithmHandle>(native);
  return status;
}

Status BCryptCloseAlgorithmProvider(AlgorithmHandle algorithm) {
  return Call<decltype(::BCryptCloseAlgorithmProvider)>("BCryptCloseAlgorithmProvider",
                                                        NativeAlgorithm(algorithm), kNoFlags);
}

Status BCryptGetProperty(AlgorithmHandle algorithm, const char16_t* property, void* output,
                         std::uint32_t size, std::uint32_t* written) {
  ULONG count = 0;
  const Status status = Call<decltype(::BCryptGetProperty)>(
      "BCryptGetProperty", NativeAlgorithm(algorithm), Wide(property), static_cast<PUCHAR>(output),
      size, &count, kNoFlags);
  *written = count;
  return status;
}

Status BCryptCreateHash(AlgorithmHandle algorithm, HashHandle* hash, void* object,
                        std::uint32_t size) {
  BCRYPT_HASH_HANDLE native = nullptr;
  const Status status = Call<decltype(::BCryptCreateHash)>(
      "BCryptCreateHash", NativeAlgorithm(algorithm), &native, static_cast<PUCHAR>(object), size,
      /*pbSecret=*/static_cast<PUCHAR>(nullptr), /*cbSecret=*/ULONG{0}, kNoFlags);
  *hash = reinterpret_cast<HashHandle>(native);
  return status;
}

Status BCryptHashData(HashHandle hash, const void* data, std::uint32_t size) {
  // The system declares the data as writable but only reads it.
  const auto bytes = static_cast<PUCHAR>(const_cast<void*>(data));
  return Call<decltype(::BCryptHashData)>("BCryptHashData", NativeHash(hash), bytes, size,
                                          kNoFlags);
}

Status BCryptFinishHash(HashHandle hash, void* digest, std::uint32_t size) {
  return Call<decltype(::BCryptFinishHash)>("BCryptFinishHash", NativeHash(hash),
                                            static_cast<PUCHAR>(digest), size, kNoFlags);
}

Status BCryptDestroyHash(HashHandle hash) {
  return Call<decltype(::BCryptDestroyHash)>("BCryptDestroyHash", NativeHash(hash));
}

}  // namespace tolvarine::updater::platform
