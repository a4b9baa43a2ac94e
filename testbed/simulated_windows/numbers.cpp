// The C runtime's conversions of text to numbers, in base 10, the only one that the program uses.
//
// White space and digits were measured with wcstoul and _wcstoui64 of the msvcrt of Wine 8.0, for
// every 16-bit unit in front of a digit, alone and behind a digit. Unlike most C libraries the one
// of Windows accepts the decimal digits of other scripts, also mixed.

#include <algorithm>
#include <cerrno>
#include <limits>
#include <optional>

#include "platform/text.h"

namespace tolvarine::updater::platform {

namespace {

struct UnitRange {
  char16_t first;
  char16_t last;
};

constexpr UnitRange kWhiteSpace[] = {{0x0009, 0x000D}, {0x0020, 0x0020}, {0x00A0, 0x00A0},
                                     {0x1680, 0x1680}, {0x2000, 0x200A}, {0x2028, 0x2029},
                                     {0x202F, 0x202F}, {0x205F, 0x205F}, {0x3000, 0x3000}};

// The zeros; each is followed by its digits 1 to 9.
constexpr char16_t kZeros[] = {0x0030, 0x0660, 0x06F0, 0x0966, 0x09E6, 0x0A66,
                               0x0AE6, 0x0B66, 0x0C66, 0x0CE6, 0x0D66, 0x0E50,
                               0x0ED0, 0x0F20, 0x1040, 0x17E0, 0x1810, 0xFF10};

bool IsWhiteSpace(char16_t unit) {
  return std::ranges::any_of(kWhiteSpace, [unit](const UnitRange& range) {
    return unit >= range.first && unit <= range.last;
  });
}

std::optional<unsigned> DigitValue(char16_t unit) {
  for (const char16_t zero : kZeros) {
    if (unit >= zero && unit <= zero + 9) return static_cast<unsigned>(unit - zero);
  }
  return std::nullopt;
}

// A number that is too large consumes all of its digits. A minus negates a number that fits, modulo
// the range of the type.
template <typename Number>
Number Parse(const char16_t* text, const char16_t** end) {
  constexpr Number kLargest = std::numeric_limits<Number>::max();
  *end = text;
  while (IsWhiteSpace(*text)) ++text;
  const bool negative = *text == u'-';
  if (negative || *text == u'+') ++text;
  if (!DigitValue(*text)) return 0;

  Number value = 0;
  bool overflow = false;
  while (const std::optional<unsigned> digit = DigitValue(*text)) {
    overflow = overflow || value > (kLargest - *digit) / 10;
    if (!overflow) value = value * 10 + *digit;
    ++text;
  }
  *end = text;
  if (overflow) {
    errno = ERANGE;
    return kLargest;
  }
  return negative ? Number{0} - value : value;
}

}  // namespace

std::uint32_t wcstoul(const char16_t* text, const char16_t** end) {
  return Parse<std::uint32_t>(text, end);
}

std::uint64_t wcstoull(const char16_t* text, const char16_t** end) {
  return Parse<std::uint64_t>(text, end);
}

}  // namespace tolvarine::updater::platform
