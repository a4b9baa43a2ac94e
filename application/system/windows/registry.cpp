#include "system/registry.h"

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

static_assert(kKeySetValue == KEY_SET_VALUE);

namespace {

HKEY NativeKey(Handle key) { return static_cast<HKEY>(Native(key)); }

}  // namespace

std::uint32_t RegCreateKeyExW(const char16_t* path, std::uint32_t access, Handle* key) {
  HKEY native = nullptr;
  const LSTATUS code =
      ::RegCreateKeyExW(HKEY_CURRENT_USER, Wide(path), /*Reserved=*/0, /*lpClass=*/nullptr,
                        REG_OPTION_NON_VOLATILE, access, /*lpSecurityAttributes=*/nullptr, &native,
                        /*lpdwDisposition=*/nullptr);
  *key = FromNative(native);
  return static_cast<std::uint32_t>(code);
}

std::uint32_t RegGetValueW(const char16_t* path, const char16_t* name, char16_t* buffer,
                           std::uint32_t* bytes) {
  DWORD size = *bytes;
  const LSTATUS code = ::RegGetValueW(HKEY_CURRENT_USER, Wide(path), Wide(name), RRF_RT_REG_SZ,
                                      /*pdwType=*/nullptr, buffer, &size);
  *bytes = size;
  return static_cast<std::uint32_t>(code);
}

std::uint32_t RegSetValueExW(Handle key, const char16_t* name, const char16_t* text,
                             std::uint32_t bytes) {
  return static_cast<std::uint32_t>(::RegSetValueExW(NativeKey(key), Wide(name), /*Reserved=*/0,
                                                     REG_SZ, reinterpret_cast<const BYTE*>(text),
                                                     bytes));
}

std::uint32_t RegDeleteValueW(Handle key, const char16_t* name) {
  return static_cast<std::uint32_t>(::RegDeleteValueW(NativeKey(key), Wide(name)));
}

std::uint32_t RegFlushKey(Handle key) {
  return static_cast<std::uint32_t>(::RegFlushKey(NativeKey(key)));
}

std::uint32_t RegCloseKey(Handle key) {
  return static_cast<std::uint32_t>(::RegCloseKey(NativeKey(key)));
}

}  // namespace tolvarine::updater::platform
