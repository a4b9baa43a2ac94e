// Access rights beyond those that the program asks for by name.

#pragma once

#include <cstdint>

#include "platform/files.h"

namespace tolvarine::updater::simulated {

inline constexpr std::uint32_t kFileReadData = 0x1;
inline constexpr std::uint32_t kFileWriteData = 0x2;
inline constexpr std::uint32_t kFileExecute = 0x20;

// The specific rights that the generic ones stand for, for a file.
[[nodiscard]] constexpr std::uint32_t SpecificRights(std::uint32_t access) {
  constexpr std::uint32_t kGenericReadRights = 0x120089;
  constexpr std::uint32_t kGenericWriteRights = 0x120116;
  std::uint32_t rights = access & ~(platform::kGenericRead | platform::kGenericWrite);
  if ((access & platform::kGenericRead) != 0) rights |= kGenericReadRights;
  if ((access & platform::kGenericWrite) != 0) rights |= kGenericWriteRights;
  return rights;
}

}  // namespace tolvarine::updater::simulated
