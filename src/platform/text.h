// Conversions of text, and the system's languages and code pages.
//
// Lengths are in units of the respective text, without a final zero. A conversion with a null
// buffer and size 0 returns the size that it needs.

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

// Replaces what the code page cannot hold by its default character. `used_default`, unless null,
// receives whether it did. 0 is failure.
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

// Converts to lower case in place, unit by unit; returns the number of units processed.
std::uint32_t CharLowerBuffW(char16_t* text, std::uint32_t length);

inline constexpr std::uint32_t kFormatMessageAllocateBuffer = 0x100;
inline constexpr std::uint32_t kFormatMessageIgnoreInserts = 0x200;
inline constexpr std::uint32_t kFormatMessageFromSystem = 0x1000;

// The system's message for a code, in memory that LocalFree (shell.h) releases. Returns its length
// in bytes; 0 is failure.
std::uint32_t FormatMessageA(std::uint32_t flags, std::uint32_t code, std::uint32_t language,
                             char** text);

inline constexpr std::uint32_t kLocaleIlanguage = 0x1;
inline constexpr std::uint32_t kLocaleReturnNumber = 0x20000000;

// Supports kLocaleReturnNumber only. 0 is failure.
std::int32_t GetLocaleInfoEx(const char16_t* locale, std::uint32_t type, std::uint32_t* number);

bool AreFileApisANSI();

// The code page of the C runtime's locale, which the program never changes.
std::uint32_t lc_codepage_func();

// The C runtime's conversions with base 10; `unsigned long` has 32 bits. Overflow sets errno to
// ERANGE and gives the greatest value; otherwise errno is unchanged. `*end` is where the conversion
// stopped, which is the start if there was no number.
std::uint32_t wcstoul(const char16_t* text, const char16_t** end);
std::uint64_t wcstoull(const char16_t* text, const char16_t** end);

}  // namespace tolvarine::updater::platform
