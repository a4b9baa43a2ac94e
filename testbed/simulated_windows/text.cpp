// Conversions between 16-bit and 8-bit text, for the code pages that a simulated computer knows:
// 1252 and 437, UTF-8, and of 54936 (GB18030) its two regular parts, ASCII and the four-byte
// sequences of the characters beyond the 16-bit ones. The rest of 54936 is a table of some 63,000
// entries and is left out: such a character counts as one that cannot be converted. The program
// uses that code page only on a computer whose ANSI code page it is.
//
// Best-fit mappings (an accented letter becomes a plain one) are left out, too: a single-byte
// conversion answers as with WC_NO_BEST_FIT_CHARS, with that flag or without it.

#include "platform/text.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/code_page_tables.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;

namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char kDefaultCharacter = '?';

// The result of a conversion, and whether it contains replacements.
template <typename Unit>
struct Converted {
  std::basic_string<Unit> text;
  bool replaced = false;
};

using Narrowed = Converted<char>;
using Widened = Converted<char16_t>;

// --- Characters ------------------------------------------------------------------------------

bool IsSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDFFF; }

// The character at `*at`, which moves behind it; nothing for a surrogate without its partner.
std::optional<char32_t> TakeCharacter(std::u16string_view wide, std::size_t* at) {
  const char32_t unit = wide[(*at)++];
  if (!IsSurrogate(unit)) return unit;
  if (unit >= 0xDC00 || *at == wide.size()) return std::nullopt;
  const char32_t next = wide[*at];
  if (next < 0xDC00 || next > 0xDFFF) return std::nullopt;
  ++*at;
  return 0x10000 + ((unit - 0xD800) << 10) + (next - 0xDC00);
}

void Append(char32_t character, std::u16string* wide) {
  if (character < 0x10000) {
    wide->push_back(static_cast<char16_t>(character));
    return;
  }
  wide->push_back(static_cast<char16_t>(0xD800 + ((character - 0x10000) >> 10)));
  wide->push_back(static_cast<char16_t>(0xDC00 + ((character - 0x10000) & 0x3FF)));
}

void AppendByte(char32_t byte, std::string* narrow) { narrow->push_back(static_cast<char>(byte)); }

unsigned ByteAt(std::string_view narrow, std::size_t at) {
  return static_cast<unsigned char>(narrow[at]);
}

// --- UTF-8 -----------------------------------------------------------------------------------

void AppendUtf8(char32_t character, std::string* narrow) {
  if (character < 0x80) {
    AppendByte(character, narrow);
    return;
  }
  if (character < 0x800) {
    AppendByte(0xC0 | character >> 6, narrow);
  } else {
    if (character < 0x10000) {
      AppendByte(0xE0 | character >> 12, narrow);
    } else {
      AppendByte(0xF0 | character >> 18, narrow);
      AppendByte(0x80 | (character >> 12 & 0x3F), narrow);
    }
    AppendByte(0x80 | (character >> 6 & 0x3F), narrow);
  }
  AppendByte(0x80 | (character & 0x3F), narrow);
}

Narrowed NarrowToUtf8(std::u16string_view wide) {
  Narrowed result;
  for (std::size_t at = 0; at < wide.size();) {
    const std::optional<char32_t> character = TakeCharacter(wide, &at);
    result.replaced |= !character;
    AppendUtf8(character.value_or(kReplacement), &result.text);
  }
  return result;
}

// How many bytes follow a first byte, and the range of the second byte, which excludes overlong
// sequences, surrogates and characters beyond U+10FFFF.
struct Utf8Lead {
  std::size_t following = 0;
  unsigned second_from = 0x80;
  unsigned second_to = 0xBF;
};

std::optional<Utf8Lead> LeadOf(unsigned byte) {
  if (byte >= 0xC2 && byte <= 0xDF) return Utf8Lead{1};
  if (byte == 0xE0) return Utf8Lead{2, 0xA0, 0xBF};
  if (byte == 0xED) return Utf8Lead{2, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return Utf8Lead{2};
  if (byte == 0xF0) return Utf8Lead{3, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return Utf8Lead{3};
  if (byte == 0xF4) return Utf8Lead{3, 0x80, 0x8F};
  return std::nullopt;
}

// Takes one character, or as many bytes as could have begun one: they are replaced together.
std::optional<char32_t> TakeUtf8(std::string_view narrow, std::size_t* at) {
  const unsigned first = ByteAt(narrow, (*at)++);
  if (first < 0x80) return first;
  const std::optional<Utf8Lead> lead = LeadOf(first);
  if (!lead) return std::nullopt;
  char32_t character = first & (0x3FU >> lead->following);
  for (std::size_t i = 0; i < lead->following; ++i, ++*at) {
    const unsigned from = i == 0 ? lead->second_from : 0x80;
    const unsigned to = i == 0 ? lead->second_to : 0xBF;
    if (*at == narrow.size() || ByteAt(narrow, *at) < from || ByteAt(narrow, *at) > to) {
      return std::nullopt;
    }
    character = character << 6 | (ByteAt(narrow, *at) & 0x3F);
  }
  return character;
}

// --- GB18030 ---------------------------------------------------------------------------------

// The characters from U+10000 on are numbered through the four-byte forms, whose digits count by
// 126, 10, 126 and 10, from this number (90 30 81 30).
constexpr char32_t kFirstSupplementary = 189'000;

void AppendGb18030(char32_t character, std::string* narrow) {
  const char32_t number = character - 0x10000 + kFirstSupplementary;
  AppendByte(0x81 + number / (10 * 126 * 10), narrow);
  AppendByte(0x30 + number / (126 * 10) % 10, narrow);
  AppendByte(0x81 + number / 10 % 126, narrow);
  AppendByte(0x30 + number % 10, narrow);
}

Narrowed NarrowToGb18030(std::u16string_view wide) {
  Narrowed result;
  for (std::size_t at = 0; at < wide.size();) {
    const std::optional<char32_t> character = TakeCharacter(wide, &at);
    if (character && *character >= 0x10000) {
      AppendGb18030(*character, &result.text);
    } else {
      const bool ascii = character && *character < 0x80;
      result.replaced |= !ascii;
      AppendByte(ascii ? *character : char32_t{kDefaultCharacter}, &result.text);
    }
  }
  return result;
}

std::optional<char32_t> TakeGb18030(std::string_view narrow, std::size_t* at) {
  const std::size_t start = (*at)++;
  const unsigned first = ByteAt(narrow, start);
  if (first < 0x80) return first;
  if (narrow.size() - start < 4) return std::nullopt;
  const unsigned digits[] = {first - 0x81, ByteAt(narrow, start + 1) - 0x30,
                             ByteAt(narrow, start + 2) - 0x81, ByteAt(narrow, start + 3) - 0x30};
  if (digits[0] >= 126 || digits[1] >= 10 || digits[2] >= 126 || digits[3] >= 10) {
    return std::nullopt;
  }
  const char32_t number = ((digits[0] * 10 + digits[1]) * 126 + digits[2]) * 10 + digits[3];
  if (number < kFirstSupplementary || number - kFirstSupplementary > 0xFFFFF) return std::nullopt;
  *at = start + 4;
  return number - kFirstSupplementary + 0x10000;
}

// --- Single-byte code pages ------------------------------------------------------------------

using UpperHalf = const char16_t (&)[128];

std::optional<char32_t> ByteOf(char32_t character, UpperHalf upper) {
  if (character < 0x80) return character;
  const char16_t* const found = std::find(std::begin(upper), std::end(upper), character);
  if (found == std::end(upper)) return std::nullopt;
  return 0x80 + static_cast<char32_t>(found - upper);
}

// These code pages convert units and not characters: a pair of surrogates becomes two default
// characters.
Narrowed NarrowToBytes(std::u16string_view wide, UpperHalf upper) {
  Narrowed result;
  for (const char16_t unit : wide) {
    const std::optional<char32_t> byte = ByteOf(unit, upper);
    result.replaced |= !byte;
    AppendByte(byte.value_or(kDefaultCharacter), &result.text);
  }
  return result;
}

Widened WidenBytes(std::string_view narrow, UpperHalf upper) {
  Widened result;
  for (std::size_t at = 0; at < narrow.size(); ++at) {
    const unsigned byte = ByteAt(narrow, at);
    result.text.push_back(byte < 0x80 ? static_cast<char16_t>(byte) : upper[byte - 0x80]);
  }
  return result;
}

// --- Code pages ------------------------------------------------------------------------------

std::uint32_t ResolveCodePage(std::uint32_t code_page) {
  if (code_page == kCpAcp) return Computer::Current().locale.ansi_code_page;
  if (code_page == kCpOemcp) return Computer::Current().locale.oem_code_page;
  return code_page;
}

constexpr std::uint32_t kCpWindows1252 = 1252;
constexpr std::uint32_t kCpDos437 = 437;

// Can express every character; accepts the strict flag and no other one.
bool IsComplete(std::uint32_t code_page) { return code_page == kCpUtf8 || code_page == kCpGb18030; }

bool IsKnown(std::uint32_t code_page) {
  return IsComplete(code_page) || code_page == kCpWindows1252 || code_page == kCpDos437;
}

Narrowed Narrow(std::u16string_view wide, std::uint32_t code_page) {
  if (code_page == kCpUtf8) return NarrowToUtf8(wide);
  if (code_page == kCpGb18030) return NarrowToGb18030(wide);
  using simulated::kCodePage1252, simulated::kCodePage437;
  return NarrowToBytes(wide, code_page == kCpWindows1252 ? kCodePage1252 : kCodePage437);
}

Widened Widen(std::string_view narrow, std::uint32_t code_page) {
  using simulated::kCodePage1252, simulated::kCodePage437;
  if (!IsComplete(code_page)) {
    return WidenBytes(narrow, code_page == kCpWindows1252 ? kCodePage1252 : kCodePage437);
  }
  Widened result;
  for (std::size_t at = 0; at < narrow.size();) {
    const std::optional<char32_t> character =
        code_page == kCpUtf8 ? TakeUtf8(narrow, &at) : TakeGb18030(narrow, &at);
    result.replaced |= !character;
    Append(character.value_or(kReplacement), &result.text);
  }
  return result;
}

// --- Input and output ------------------------------------------------------------------------

template <typename In, typename Out>
bool AreValidBuffers(const In* input, std::int32_t length, const Out* output, std::int32_t size) {
  return input != nullptr && length != 0 && size >= 0 && (output != nullptr || size == 0);
}

// A negative length means a text that ends with a zero, and the zero is converted, too.
template <typename Unit>
std::basic_string_view<Unit> Input(const Unit* text, std::int32_t length) {
  if (length >= 0) return {text, static_cast<std::size_t>(length)};
  return {text, std::char_traits<Unit>::length(text) + 1};
}

// As on Windows, a buffer that is too small receives the beginning, and 122 comes before 1113.
template <typename Unit>
std::int32_t Deliver(const Converted<Unit>& converted, bool strict, Unit* output,
                     std::int32_t size) {
  const auto length = static_cast<std::int32_t>(converted.text.size());
  std::copy_n(converted.text.data(), std::min(length, size), output);
  if (size != 0 && size < length) return FailCall(simulated::kErrorInsufficientBuffer, 0);
  if (strict && converted.replaced) return FailCall(kErrorNoUnicodeTranslation, 0);
  return length;
}

}  // namespace

std::int32_t WideCharToMultiByte(std::uint32_t code_page, std::uint32_t flags, const char16_t* wide,
                                 std::int32_t wide_length, char* narrow, std::int32_t narrow_size,
                                 bool* used_default) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::WideCharToMultiByte)) {
    return FailCall(fault->code, 0);
  }
  const std::uint32_t page = ResolveCodePage(code_page);
  if (!AreValidBuffers(wide, wide_length, narrow, narrow_size) || !IsKnown(page) ||
      (IsComplete(page) && used_default != nullptr)) {
    return FailCall(kErrorInvalidParameter, 0);
  }
  const std::uint32_t allowed = IsComplete(page) ? kWcErrInvalidChars : kWcNoBestFitChars;
  if ((flags & ~allowed) != 0) return FailCall(simulated::kErrorInvalidFlags, 0);
  const Narrowed narrowed = Narrow(Input(wide, wide_length), page);
  if (used_default != nullptr) *used_default = narrowed.replaced;
  return Deliver(narrowed, (flags & kWcErrInvalidChars) != 0, narrow, narrow_size);
}

std::int32_t MultiByteToWideChar(std::uint32_t code_page, std::uint32_t flags, const char* narrow,
                                 std::int32_t narrow_length, char16_t* wide,
                                 std::int32_t wide_size) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::MultiByteToWideChar)) {
    return FailCall(fault->code, 0);
  }
  const std::uint32_t page = ResolveCodePage(code_page);
  if (!AreValidBuffers(narrow, narrow_length, wide, wide_size) || !IsKnown(page)) {
    return FailCall(kErrorInvalidParameter, 0);
  }
  if ((flags & ~kMbErrInvalidChars) != 0) return FailCall(simulated::kErrorInvalidFlags, 0);
  const Widened widened = Widen(Input(narrow, narrow_length), page);
  return Deliver(widened, (flags & kMbErrInvalidChars) != 0, wide, wide_size);
}

}  // namespace tolvarine::updater::platform
