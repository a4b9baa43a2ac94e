#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

// -1 for a character that is no digit.
int DigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

}  // namespace

void AppendHex(std::string& text, std::string_view bytes) {
  const std::size_t start = text.size();
  text.resize(start + bytes.size() * 2);
  char* digit = text.data() + start;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    *digit++ = kDigits[value >> 4];
    *digit++ = kDigits[value & 0xF];
  }
}

std::string EncodeHex(std::string_view bytes) {
  std::string text;
  AppendHex(text, bytes);
  return text;
}

std::optional<std::string> DecodeHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i < text.size(); i += 2) {
    const int high = DigitValue(text[i]);
    const int low = DigitValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes.push_back(static_cast<char>(high * 16 + low));
  }
  return bytes;
}

}  // namespace tolvarine::updater
