// The command line of this process, the message box, and the start of a program.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

// The text belongs to the system and lasts as long as the process.
const char16_t* GetCommandLineW();

// Splits a command line into its arguments; null on failure. One LocalFree releases all of them.
char16_t** CommandLineToArgvW(const char16_t* command_line, std::int32_t* count);
void LocalFree(void* memory);

inline constexpr std::uint32_t kMessageBoxIconError = 0x10;
inline constexpr std::uint32_t kMessageBoxIconWarning = 0x30;

// Shows a box with no owner window and blocks until the person closes it. 0 is failure.
std::int32_t MessageBoxW(const char16_t* text, const char16_t* title, std::uint32_t type);

inline constexpr std::int32_t kShowNormal = 1;

// Starts a program with no owner window and no parameters. A result above 32 is success.
std::intptr_t ShellExecuteW(const char16_t* verb, const char16_t* file, const char16_t* directory,
                            std::int32_t show);

}  // namespace tolvarine::updater::platform
