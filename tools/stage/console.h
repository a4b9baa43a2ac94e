// The system calls of TolvarineStage that the updater does not make. Only console.cpp includes the
// system's header.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater::stage {

enum class Channel { kOutput, kError };

// Writes UTF-8 text: as 16-bit text to a console, as bytes to a file or pipe. Does not convert line
// ends.
void Print(Channel channel, std::string_view text);

// Returns 64 random digits 0-9 and a-f. Throws std::runtime_error.
[[nodiscard]] std::u16string RandomIdentifier();

// Returns the directory of this program's executable.
[[nodiscard]] Path ProgramDirectory();

// Starts a program with exactly this command line, waits for its end and returns its exit code.
// Throws SystemError when it cannot be started.
[[nodiscard]] std::uint32_t RunProgram(const Path& program, std::u16string command_line);

}  // namespace tolvarine::updater::stage
