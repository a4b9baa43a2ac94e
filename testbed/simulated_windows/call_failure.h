// How a simulated call fails: it leaves its code as the last error of the current computer.
//
//   if (const Fault* fault = Computer::Current().calls.Enter(Call::OpenProcess)) {
//     return FailCall(fault->code, kNullHandle);
//   }

#pragma once

#include <cstdint>

#include "simulated_windows/computer.h"

namespace tolvarine::updater::simulated {

// Codes of Windows that the program does not distinguish; the others are in platform/error_codes.h.
inline constexpr std::uint32_t kErrorInvalidHandle = 6;
inline constexpr std::uint32_t kErrorNotEnoughMemory = 8;
inline constexpr std::uint32_t kErrorNotSameDevice = 17;
inline constexpr std::uint32_t kErrorWriteProtect = 19;
inline constexpr std::uint32_t kErrorGenFailure = 31;
inline constexpr std::uint32_t kErrorFileExists = 80;
inline constexpr std::uint32_t kErrorDiskFull = 112;
inline constexpr std::uint32_t kErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t kErrorDirNotRoot = 144;
inline constexpr std::uint32_t kErrorFilenameExcedRange = 206;
inline constexpr std::uint32_t kErrorNotOwner = 288;
inline constexpr std::uint32_t kErrorMessageNotFound = 317;
inline constexpr std::uint32_t kErrorInvalidFlags = 1004;
inline constexpr std::uint32_t kErrorLanguageNotFound = 1815;
inline constexpr std::uint32_t kErrorCantAccessFile = 1920;       // A reparse tag without a driver.
inline constexpr std::uint32_t kErrorCantResolveFilename = 1921;  // A circle of links.

// Leaves `code` as the last error and returns `result`, the result of the failing call.
template <typename Result>
Result FailCall(std::uint32_t code, Result result) {
  Computer::Current().last_error = code;
  return result;
}

}  // namespace tolvarine::updater::simulated
