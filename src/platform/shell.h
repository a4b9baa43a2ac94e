// The command line of this process, the message box, and the start of a program.

#pragma once

#include <cstdint>

namespace tolvarine::updater::platform {

// The system's own text, for the life of the process.
const char16_t* GetCommandLineW();

// Splits a command line into its arguments; null on failure. Released with LocalFree, as one.
char16_t** CommandLineToArgvW(const char16_t* command_line, std::int32_t* count);
void LocalFree(void* memory);

inline constexpr std::uint32_t kMessageBoxIconError = 0x10;
inline constexpr std::uint32_t kMessageBoxIconWarning = 0x30;

// With no owner window; blocks until the person dismisses it. 0 is failure.
std::int32_t MessageBoxW(const char16_t* text, const char16_t* title, std::uint32_t type);

inline constexpr std::int32_t kShowNormal = 1;

// With no owner and no parameters. Above 32 is success.
std::intptr_t ShellExecuteW(const char16_t* verb, const char16_t* file, const char16_t* directory,
                            std::int32_t show);

}  // namespace tolvarine::updater::platform
