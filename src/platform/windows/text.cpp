#include "platform/text.h"

#include <locale.h>
#include <wchar.h>

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

namespace {

constexpr int kDecimal = 10;

}  // namespace

static_assert(kCpAcp == CP_ACP);
static_assert(kCpOemcp == CP_OEMCP);
static_assert(kCpUtf8 == CP_UTF8);  // The system's headers have no name for kCpGb18030.

static_assert(kWcErrInvalidChars == WC_ERR_INVALID_CHARS);
static_assert(kWcNoBestFitChars == WC_NO_BEST_FIT_CHARS);
static_assert(kMbErrInvalidChars == MB_ERR_INVALID_CHARS);
static_assert(kLcmapLowercase == LCMAP_LOWERCASE);

static_assert(kFormatMessageAllocateBuffer == FORMAT_MESSAGE_ALLOCATE_BUFFER);
static_assert(kFormatMessageIgnoreInserts == FORMAT_MESSAGE_IGNORE_INSERTS);
static_assert(kFormatMessageFromSystem == FORMAT_MESSAGE_FROM_SYSTEM);

static_assert(kLocaleIlanguage == LOCALE_ILANGUAGE);
static_assert(kLocaleReturnNumber == LOCALE_RETURN_NUMBER);

std::int32_t WideCharToMultiByte(std::uint32_t code_page, std::uint32_t flags, const char16_t* wide,
                                 std::int32_t wide_length, char* narrow, std::int32_t narrow_size,
                                 bool* used_default) {
  BOOL used = FALSE;
  // The system refuses UTF-8 and GB 18030 if `lpUsedDefaultChar` is not null.
  const std::int32_t length =
      ::WideCharToMultiByte(code_page, flags, Wide(wide), wide_length, narrow, narrow_size,
                            /*lpDefaultChar=*/nullptr, used_default != nullptr ? &used : nullptr);
  if (used_default != nullptr) *used_default = used != FALSE;
  return length;
}

std::int32_t MultiByteToWideChar(std::uint32_t code_page, std::uint32_t flags, const char* narrow,
                                 std::int32_t narrow_length, char16_t* wide,
                                 std::int32_t wide_size) {
  return ::MultiByteToWideChar(code_page, flags, narrow, narrow_length, Wide(wide), wide_size);
}

std::int32_t LCMapStringEx(const char16_t* locale, std::uint32_t flags, const char16_t* source,
                           std::int32_t source_length, char16_t* destination,
                           std::int32_t destination_size) {
  return ::LCMapStringEx(Wide(locale), flags, Wide(source), source_length, Wide(destination),
                         destination_size, /*lpVersionInformation=*/nullptr,
                         /*lpReserved=*/nullptr, /*sortHandle=*/0);
}

std::uint32_t CharLowerBuffW(char16_t* text, std::uint32_t length) {
  return ::CharLowerBuffW(Wide(text), length);
}

std::uint32_t FormatMessageA(std::uint32_t flags, std::uint32_t code, std::uint32_t language,
                             char** text) {
  // With kFormatMessageAllocateBuffer the buffer argument points to where the address of the new
  // buffer is stored.
  return ::FormatMessageA(flags, /*lpSource=*/nullptr, code, language,
                          reinterpret_cast<LPSTR>(text), /*nSize=*/0, /*Arguments=*/nullptr);
}

std::int32_t GetLocaleInfoEx(const char16_t* locale, std::uint32_t type, std::uint32_t* number) {
  // With kLocaleReturnNumber the number is stored in the text buffer, whose size is in units of
  // text.
  constexpr int kUnitsOfNumber = sizeof(DWORD) / sizeof(wchar_t);
  DWORD value = 0;
  const std::int32_t length =
      ::GetLocaleInfoEx(Wide(locale), type, reinterpret_cast<LPWSTR>(&value), kUnitsOfNumber);
  *number = value;
  return length;
}

bool AreFileApisANSI() { return ::AreFileApisANSI() != FALSE; }

std::uint32_t lc_codepage_func() { return ::___lc_codepage_func(); }

std::uint32_t wcstoul(const char16_t* text, const char16_t** end) {
  wchar_t* stop = nullptr;
  const std::uint32_t value = ::wcstoul(Wide(text), &stop, kDecimal);
  *end = reinterpret_cast<const char16_t*>(stop);
  return value;
}

std::uint64_t wcstoull(const char16_t* text, const char16_t** end) {
  wchar_t* stop = nullptr;
  // The toolchain links a function of its own for `wcstoull`; this one is the runtime's.
  const std::uint64_t value = ::_wcstoui64(Wide(text), &stop, kDecimal);
  *end = reinterpret_cast<const char16_t*>(stop);
  return value;
}

}  // namespace tolvarine::updater::platform
