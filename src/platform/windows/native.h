// The system's header, and conversions between its types and those of the platform layer.
//
// Every function of this folder makes one system call. It converts the types and adds the arguments
// that are always the same. It decides and repeats nothing, and makes no other call afterwards that
// could change the last error. Only the hash functions are looked up by name first (hashing.cpp).

#pragma once

#include <windows.h>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "the system's text is made of 16-bit units");

inline const wchar_t* Wide(const char16_t* text) { return reinterpret_cast<const wchar_t*>(text); }
inline wchar_t* Wide(char16_t* text) { return reinterpret_cast<wchar_t*>(text); }

inline HANDLE Native(Handle handle) { return reinterpret_cast<HANDLE>(handle); }
inline Handle FromNative(HANDLE handle) { return reinterpret_cast<Handle>(handle); }

}  // namespace tolvarine::updater::platform
