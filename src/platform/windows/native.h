// What the files of this folder share: the system's header and the way between its types and ours.
//
// Every function of this folder is one call of the system's. It turns types into one another and
// adds the arguments that are always the same; it takes no decision, repeats nothing and calls
// nothing after the system's call that could change the last error. The hash functions alone are
// looked up by name first (hashing.cpp).

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
