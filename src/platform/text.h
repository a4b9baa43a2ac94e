// Conversions of text and what the system knows about languages.
//
// Lengths are counted in units of the text meant and never include a final zero. A conversion with
// no room for output (a null buffer, size 0) returns the room that it needs.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

inline constexpr std::uint32_t kCpAcp = 0;
inline constexpr std::uint32_t kCpOemcp = 1;
inline constexpr std::uint32_t kCpGb18030 = 54936;
inline constexpr std::uint32_t kCpUtf8 = 65001;

inline constexpr std::uint32_t kWcErrInvalidChars = 0x80;
inline constexpr std::uint32_t kWcNoBestFitChars = 0x400;
inline constexpr std::uint32_t kMbErrInvalidChars = 0x8;

// The code page's own default character stands in for what it cannot hold; `used_default`, where
// not null, tells whether it had to. 0 is failure.
std::int32_t WideCharToMultiByte(std::uint32_t code_page, std::uint32_t flags, const char16_t* wide,
                                 std::int32_t wide_length, char* narrow, std::int32_t narrow_size,
                                 bool* used_default);
std::int32_t MultiByteToWideChar(std::uint32_t code_page, std::uint32_t flags, const char* narrow,
                                 std::int32_t narrow_length, char16_t* wide,
                                 std::int32_t wide_size);

inline constexpr std::uint32_t kLcmapLowercase = 0x100;

// `locale` "" is the invariant locale. 0 is failure.
std::int32_t LCMapStringEx(const char16_t* locale, std::uint32_t flags, const char16_t* source,
                           std::int32_t source_length, char16_t* destination,
                           std::int32_t destination_size);

// Lowercases in place, unit by unit; returns the number of units handled.
std::uint32_t CharLowerBuffW(char16_t* text, std::uint32_t length);

inline constexpr std::uint32_t kFormatMessageAllocateBuffer = 0x100;
inline constexpr std::uint32_t kFormatMessageIgnoreInserts = 0x200;
inline constexpr std::uint32_t kFormatMessageFromSystem = 0x1000;

// The system's text for a code, in memory to be released with LocalFree (shell.h). Returns its
// length in bytes; 0 is failure.
std::uint32_t FormatMessageA(std::uint32_t flags, std::uint32_t code, std::uint32_t language,
                             char** text);

inline constexpr std::uint32_t kLocaleIlanguage = 0x1;
inline constexpr std::uint32_t kLocaleReturnNumber = 0x20000000;

// With kLocaleReturnNumber only. 0 is failure.
std::int32_t GetLocaleInfoEx(const char16_t* locale, std::uint32_t type, std::uint32_t* number);

bool AreFileApisANSI();

// The code page of the C runtime's locale, which is that of its start-up.
std::uint32_t lc_codepage_func();

// The C runtime's conversions with base 10, as Windows has them: `unsigned long` is 32 bits wide.
// Overflow sets errno to ERANGE, and the value is then the runtime's own; otherwise errno stays as
// it was. `*end` is where the conversion stopped, the start if there was none.
std::uint32_t wcstoul(const char16_t* text, const char16_t** end);
std::uint64_t wcstoull(const char16_t* text, const char16_t** end);

}  // namespace tolvarine::updater::platform
