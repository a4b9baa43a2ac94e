// The command line that starts an updater.

#pragma once

#include <string>
#include <string_view>

#include "driver/command_line.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

// Windows starts no process with a longer one. In units, its final zero included.
inline constexpr std::size_t kCommandLineLimit = 32767;

// One argument as CommandLineToArgvW gives it back, whatever it holds but a zero unit.
[[nodiscard]] std::u16string QuoteArgument(std::u16string_view argument);

// The whole command line of an updater: its own path, then every option. Options whose value is
// empty where that means absence (deletions, the creation time) are left out. Throws what
// serializing the lists throws.
[[nodiscard]] std::u16string CommandLineOf(const Path& updater, const UpdaterArguments& arguments);

}  // namespace tolvarine::updater::application
