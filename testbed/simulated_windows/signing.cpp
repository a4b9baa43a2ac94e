// The signature functions of bcrypt.dll, over OpenSSL's libcrypto.

#include "system/signatures.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>

#include "simulated_windows/computer.h"
#include "simulated_windows/objects.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::Fault;
using simulated::KernelObjects;

namespace {

constexpr Status kStatusSuccess = 0;
constexpr Status kStatusInvalidHandle = static_cast<Status>(0xC0000008);
constexpr Status kStatusInvalidParameter = static_cast<Status>(0xC000000D);
constexpr Status kStatusNotSupported = static_cast<Status>(0xC00000BB);

constexpr std::size_t kCoordinateSize = 32;
constexpr std::size_t kHeadSize = 8;
constexpr std::size_t kBlobSize = kHeadSize + 2 * kCoordinateSize;
constexpr std::size_t kSignatureSize = 2 * kCoordinateSize;

const Fault* Enter(Call call) { return Computer::Current().calls.Enter(call); }

Status StatusOf(const Fault& fault) { return static_cast<Status>(fault.code); }

KernelObjects& Objects() { return Computer::Current().objects(); }

using Context = std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)>;

std::uint32_t LittleEndian(const unsigned char* bytes) {
  return std::uint32_t{bytes[3]} << 24 | std::uint32_t{bytes[2]} << 16 |
         std::uint32_t{bytes[1]} << 8 | bytes[0];
}

bool HasHead(const unsigned char* blob) {
  return LittleEndian(blob) == kBCryptEcdsaPublicP256Magic &&
         LittleEndian(blob + 4) == kCoordinateSize;
}

// Null where the coordinates are not those of a point on the curve.
KernelObjects::Key ImportPoint(const unsigned char* coordinates) {
  constexpr unsigned char kUncompressed = 4;
  std::array<unsigned char, 1 + 2 * kCoordinateSize> point{kUncompressed};
  std::memcpy(point.data() + 1, coordinates, 2 * kCoordinateSize);
  std::string curve = "prime256v1";
  std::array parameters{
      OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME, curve.data(), 0),
      OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.data(), point.size()),
      OSSL_PARAM_construct_end()};
  const Context context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr), &EVP_PKEY_CTX_free);
  EVP_PKEY* key = nullptr;
  EVP_PKEY_fromdata_init(context.get());
  EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, parameters.data());
  ERR_clear_error();
  return key == nullptr ? nullptr : std::shared_ptr<EVP_PKEY>(key, &EVP_PKEY_free);
}

// The form that libcrypto verifies: a DER sequence of the two integers.
std::string DerSignature(const unsigned char* signature) {
  const std::unique_ptr<ECDSA_SIG, decltype(&ECDSA_SIG_free)> pair(ECDSA_SIG_new(),
                                                                   &ECDSA_SIG_free);
  BIGNUM* const r = BN_bin2bn(signature, kCoordinateSize, nullptr);
  BIGNUM* const s = BN_bin2bn(signature + kCoordinateSize, kCoordinateSize, nullptr);
  ECDSA_SIG_set0(pair.get(), r, s);  // It owns them from here on.
  std::string der(static_cast<std::size_t>(i2d_ECDSA_SIG(pair.get(), nullptr)), '\0');
  auto* end = reinterpret_cast<unsigned char*>(der.data());
  i2d_ECDSA_SIG(pair.get(), &end);
  return der;
}

bool Verifies(EVP_PKEY* key, const void* hash, std::size_t hash_size, const std::string& der) {
  const Context context(EVP_PKEY_CTX_new(key, nullptr), &EVP_PKEY_CTX_free);
  const bool verifies =
      EVP_PKEY_verify_init(context.get()) == 1 &&
      EVP_PKEY_verify(context.get(), reinterpret_cast<const unsigned char*>(der.data()), der.size(),
                      static_cast<const unsigned char*>(hash), hash_size) == 1;
  ERR_clear_error();
  return verifies;
}

}  // namespace

Status BCryptImportKeyPair(AlgorithmHandle algorithm, KeyHandle* key, const void* blob,
                           std::uint32_t size) {
  if (const Fault* fault = Enter(Call::BCryptImportKeyPair)) return StatusOf(*fault);
  const std::u16string* const open = Objects().FindAlgorithm(algorithm);
  if (open == nullptr) return kStatusInvalidHandle;
  if (*open != u"ECDSA_P256") return kStatusNotSupported;
  const auto* const bytes = static_cast<const unsigned char*>(blob);
  if (size != kBlobSize || !HasHead(bytes)) return kStatusInvalidParameter;
  KernelObjects::Key imported = ImportPoint(bytes + kHeadSize);
  if (imported == nullptr) return kStatusInvalidParameter;
  *key = Objects().AddKey(std::move(imported));
  return kStatusSuccess;
}

Status BCryptVerifySignature(KeyHandle key, const void* hash, std::uint32_t hash_size,
                             const void* signature, std::uint32_t signature_size) {
  if (const Fault* fault = Enter(Call::BCryptVerifySignature)) return StatusOf(*fault);
  const KernelObjects::Key open = Objects().FindKey(key);
  if (open == nullptr) return kStatusInvalidHandle;
  if (signature_size != kSignatureSize) return kStatusInvalidParameter;
  const std::string der = DerSignature(static_cast<const unsigned char*>(signature));
  const bool verifies = Verifies(static_cast<EVP_PKEY*>(open.get()), hash, hash_size, der);
  return verifies ? kStatusSuccess : kStatusInvalidSignature;
}

Status BCryptDestroyKey(KeyHandle key) {
  if (const Fault* fault = Enter(Call::BCryptDestroyKey)) return StatusOf(*fault);
  return Objects().CloseKey(key) ? kStatusSuccess : kStatusInvalidHandle;
}

}  // namespace tolvarine::updater::platform
