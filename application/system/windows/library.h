// Functions that are looked up by name in a library of the system's.

#pragma once

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

// The library is not among those that the system loads from its own directory alone: as an import
// it would be looked for beside the program first, where others may have written. Null on failure.
inline HMODULE SystemLibrary(const wchar_t* name) {
  return ::LoadLibraryExW(name, nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
}

// Calls a function of a library by its name and declared type; `missing` where it is not there.
template <typename Function, typename Result, typename... Arguments>
Result CallByName(HMODULE library, const char* name, Result missing, Arguments... arguments) {
  // By way of void*, since the compiler warns of casts between function types.
  const auto function =
      reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
  return function == nullptr ? missing : static_cast<Result>(function(arguments...));
}

}  // namespace tolvarine::updater::platform
