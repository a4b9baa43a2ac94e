// The current user's part of the registry, HKEY_CURRENT_USER. Each function returns a Win32 code,
// 0 on success, and leaves none in GetLastError().
//
// The system writes changes to the disk when it finds the time; RegFlushKey returns when they are
// there.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

inline constexpr std::uint32_t kKeySetValue = 0x2;

// Opens a key by its path, or makes it where it is missing.
std::uint32_t RegCreateKeyExW(const char16_t* path, std::uint32_t access, Handle* key);

// The text of a value of type REG_SZ. `*bytes` is the size of the buffer, and afterwards that of the
// text, both with its final zero unit. 2 where the key or the value is missing, 234 where the buffer
// is too small, 1630 for a value of another type.
std::uint32_t RegGetValueW(const char16_t* path, const char16_t* name, char16_t* buffer,
                           std::uint32_t* bytes);

// Sets a value of type REG_SZ. `bytes` is the size of the text with its final zero unit.
std::uint32_t RegSetValueExW(Handle key, const char16_t* name, const char16_t* text,
                             std::uint32_t bytes);

// 2 where the value is missing.
std::uint32_t RegDeleteValueW(Handle key, const char16_t* name);

std::uint32_t RegFlushKey(Handle key);
std::uint32_t RegCloseKey(Handle key);

}  // namespace tolvarine::updater::platform
