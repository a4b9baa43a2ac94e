// The hash functions of bcrypt.dll, over a SHA-256 of our own (FIPS 180-4).

#include "platform/hashing.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstring>
#include <string_view>

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
constexpr Status kStatusBufferTooSmall = static_cast<Status>(0xC0000023);
constexpr Status kStatusNotSupported = static_cast<Status>(0xC00000BB);
constexpr Status kStatusNotFound = static_cast<Status>(0xC0000225);

constexpr std::u16string_view kSha256 = u"SHA256";
constexpr std::uint32_t kDigestSize = 32;
constexpr std::size_t kBlockSize = 64;

// What Windows 10 answers for "ObjectLength".
constexpr std::uint32_t kObjectLength = 326;

// The working state. It is copied from and to the caller's memory, which may have any alignment.
struct Sha256 {
  std::array<std::uint32_t, 8> h{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::uint64_t length = 0;  // Bytes so far; `block` has those behind the last whole block.
  std::array<unsigned char, kBlockSize> block{};
};
static_assert(sizeof(Sha256) <= kObjectLength);

constexpr std::array<std::uint32_t, 64> kRoundConstants{
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

std::array<std::uint32_t, 64> MessageSchedule(const unsigned char* block) {
  std::array<std::uint32_t, 64> w{};
  for (std::size_t i = 0; i < 16; ++i) {
    const unsigned char* b = block + 4 * i;
    w[i] = std::uint32_t{b[0]} << 24 | std::uint32_t{b[1]} << 16 | std::uint32_t{b[2]} << 8 | b[3];
  }
  for (std::size_t i = 16; i < 64; ++i) {
    const std::uint32_t a = w[i - 15];
    const std::uint32_t b = w[i - 2];
    const std::uint32_t s0 = std::rotr(a, 7) ^ std::rotr(a, 18) ^ (a >> 3);
    const std::uint32_t s1 = std::rotr(b, 17) ^ std::rotr(b, 19) ^ (b >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  return w;
}

void Compress(std::array<std::uint32_t, 8>& h, const unsigned char* block) {
  const std::array<std::uint32_t, 64> w = MessageSchedule(block);
  std::array<std::uint32_t, 8> v = h;
  for (std::size_t i = 0; i < 64; ++i) {
    auto& [a, b, c, d, e, f, g, last] = v;
    const std::uint32_t s1 = std::rotr(e, 6) ^ std::rotr(e, 11) ^ std::rotr(e, 25);
    const std::uint32_t t1 = last + s1 + ((e & f) ^ (~e & g)) + kRoundConstants[i] + w[i];
    const std::uint32_t s0 = std::rotr(a, 2) ^ std::rotr(a, 13) ^ std::rotr(a, 22);
    const std::uint32_t t2 = s0 + ((a & b) ^ (a & c) ^ (b & c));
    v = {t1 + t2, a, b, c, d + t1, e, f, g};
  }
  for (std::size_t i = 0; i < h.size(); ++i) h[i] += v[i];
}

void Update(Sha256& state, const unsigned char* data, std::size_t size) {
  while (size > 0) {
    const std::size_t filled = state.length % kBlockSize;
    const std::size_t taken = std::min(size, kBlockSize - filled);
    std::memcpy(state.block.data() + filled, data, taken);
    state.length += taken;
    data += taken;
    size -= taken;
    if (state.length % kBlockSize == 0) Compress(state.h, state.block.data());
  }
}

// One bit 1, zeros, and the length in bits in the last eight bytes of a block.
void Pad(Sha256& state) {
  constexpr std::array<unsigned char, kBlockSize> kPadding{0x80};
  const std::uint64_t bits = state.length * 8;
  const std::size_t used = (state.length + 8) % kBlockSize;
  Update(state, kPadding.data(), kBlockSize - used);
  std::array<unsigned char, 8> length{};
  for (std::size_t i = 0; i < length.size(); ++i) {
    length[i] = static_cast<unsigned char>(bits >> (56 - 8 * i));
  }
  Update(state, length.data(), length.size());
}

void Finish(Sha256& state, unsigned char* digest) {
  Pad(state);
  for (std::size_t i = 0; i < kDigestSize; ++i) {
    digest[i] = static_cast<unsigned char>(state.h[i / 4] >> (24 - 8 * (i % 4)));
  }
}

Sha256 Load(const KernelObjects::Hash& hash) {
  Sha256 state;
  std::memcpy(&state, hash.memory, sizeof(state));
  return state;
}

void Store(const Sha256& state, const KernelObjects::Hash& hash) {
  std::memcpy(hash.memory, &state, sizeof(state));
}

// These calls return a status and do not set the last error.
const Fault* Enter(Call call) { return Computer::Current().calls.Enter(call); }

Status StatusOf(const Fault& fault) { return static_cast<Status>(fault.code); }

KernelObjects& Objects() { return Computer::Current().objects(); }

}  // namespace

Status BCryptOpenAlgorithmProvider(AlgorithmHandle* algorithm, const char16_t* name) {
  if (const Fault* fault = Enter(Call::BCryptOpenAlgorithmProvider)) return StatusOf(*fault);
  if (algorithm == nullptr || name == nullptr) return kStatusInvalidParameter;
  const std::u16string_view wanted = name;
  if (wanted != kSha256 && wanted != u"ECDSA_P256") return kStatusNotFound;
  *algorithm = Objects().AddAlgorithm(name);
  return kStatusSuccess;
}

Status BCryptCloseAlgorithmProvider(AlgorithmHandle algorithm) {
  if (const Fault* fault = Enter(Call::BCryptCloseAlgorithmProvider)) return StatusOf(*fault);
  return Objects().CloseAlgorithm(algorithm) ? kStatusSuccess : kStatusInvalidHandle;
}

Status BCryptGetProperty(AlgorithmHandle algorithm, const char16_t* property, void* output,
                         std::uint32_t size, std::uint32_t* written) {
  if (const Fault* fault = Enter(Call::BCryptGetProperty)) return StatusOf(*fault);
  const std::u16string* const open = Objects().FindAlgorithm(algorithm);
  if (open == nullptr) return kStatusInvalidHandle;
  if (property == nullptr || output == nullptr || written == nullptr) {
    return kStatusInvalidParameter;
  }
  if (std::u16string_view(property) != u"ObjectLength" || *open != kSha256)
    return kStatusNotSupported;
  *written = sizeof(kObjectLength);
  if (size < sizeof(kObjectLength)) return kStatusBufferTooSmall;
  std::memcpy(output, &kObjectLength, sizeof(kObjectLength));
  return kStatusSuccess;
}

Status BCryptCreateHash(AlgorithmHandle algorithm, HashHandle* hash, void* object,
                        std::uint32_t size) {
  if (const Fault* fault = Enter(Call::BCryptCreateHash)) return StatusOf(*fault);
  const std::u16string* const open = Objects().FindAlgorithm(algorithm);
  if (open == nullptr) return kStatusInvalidHandle;
  if (*open != kSha256) return kStatusNotSupported;
  if (hash == nullptr || object == nullptr) return kStatusInvalidParameter;
  if (size < kObjectLength) return kStatusBufferTooSmall;
  *hash = Objects().AddHash(object);
  Store(Sha256{}, *Objects().FindHash(*hash));
  return kStatusSuccess;
}

Status BCryptHashData(HashHandle hash, const void* data, std::uint32_t size) {
  if (const Fault* fault = Enter(Call::BCryptHashData)) return StatusOf(*fault);
  const KernelObjects::Hash* open = Objects().FindHash(hash);
  if (open == nullptr || open->finished) return kStatusInvalidHandle;
  if (data == nullptr && size > 0) return kStatusInvalidParameter;
  Sha256 state = Load(*open);
  Update(state, static_cast<const unsigned char*>(data), size);
  Store(state, *open);
  return kStatusSuccess;
}

Status BCryptFinishHash(HashHandle hash, void* digest, std::uint32_t size) {
  if (const Fault* fault = Enter(Call::BCryptFinishHash)) return StatusOf(*fault);
  KernelObjects::Hash* const open = Objects().FindHash(hash);
  if (open == nullptr || open->finished) return kStatusInvalidHandle;
  if (digest == nullptr || size != kDigestSize) return kStatusInvalidParameter;
  Sha256 state = Load(*open);
  Finish(state, static_cast<unsigned char*>(digest));
  open->finished = true;
  return kStatusSuccess;
}

Status BCryptDestroyHash(HashHandle hash) {
  if (const Fault* fault = Enter(Call::BCryptDestroyHash)) return StatusOf(*fault);
  return Objects().CloseHash(hash) ? kStatusSuccess : kStatusInvalidHandle;
}

}  // namespace tolvarine::updater::platform
