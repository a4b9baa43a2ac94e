#include "release/base64.h"

#include <cstdint>

namespace tolvarine::updater::application {
namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned kSextetBits = 6;
constexpr std::uint32_t kSextetMask = 0x3F;
constexpr std::uint32_t kByteMask = 0xFF;

}  // namespace

std::string EncodeBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const std::string_view group = bytes.substr(i, 3);
    std::uint32_t bits = 0;
    for (std::size_t j = 0; j < 3; ++j) {
      bits = bits << 8U | (j < group.size() ? static_cast<unsigned char>(group[j]) : 0U);
    }
    for (std::size_t j = 0; j < 4; ++j) {
      const auto shift = static_cast<unsigned>(3 - j) * kSextetBits;
      text.push_back(j <= group.size() ? kAlphabet[bits >> shift & kSextetMask] : '=');
    }
  }
  return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size() / 4 * 3);
  std::uint32_t bits = 0;
  unsigned held = 0;  // Bits of `bits` that are not in `bytes` yet.
  for (const char digit : text.substr(0, text.find('='))) {
    const std::size_t value = kAlphabet.find(digit);
    if (value == std::string_view::npos) return std::nullopt;
    bits = bits << kSextetBits | static_cast<std::uint32_t>(value);
    held += kSextetBits;
    if (held < 8) continue;
    held -= 8;
    bytes.push_back(static_cast<char>(bits >> held & kByteMask));
  }
  // What encodes to the same text decodes to it, and nothing else does.
  if (EncodeBase64(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace tolvarine::updater::application
