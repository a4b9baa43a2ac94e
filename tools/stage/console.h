// What TolvarineStage asks of the system beyond the updater's own calls. The only part of it that
// knows the system's header.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater::stage {

enum class Channel { kOutput, kError };

// Writes UTF-8 text: to a console as the text it is, to anything else as its bytes, line ends as
// they are.
void Print(Channel channel, std::string_view text);

// 64 random digits of 0-9 and a-f. Throws std::runtime_error.
[[nodiscard]] std::u16string RandomIdentifier();

// The directory that this program was started from.
[[nodiscard]] Path ProgramDirectory();

// Starts a program with exactly this command line, waits for its end and returns its exit code.
// Throws SystemError when it cannot be started.
[[nodiscard]] std::uint32_t RunProgram(const Path& program, std::u16string command_line);

}  // namespace tolvarine::updater::stage
