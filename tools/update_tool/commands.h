// Carrying out a parsed command line: the verb is called, and what it gives is written as sentences
// or as JSON.

#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "update/progress.h"
#include "update_tool/verb_table.h"

namespace tolvarine::updater::update_tool {

inline constexpr int kWrongUsage = 2;

// What the commands are given by the program. Texts are UTF-8 and end in a newline.
struct Surroundings {
  std::function<void(std::string_view text)> print;        // What was asked for.
  std::function<void(std::string_view text)> print_error;  // Everything else.
  application::ProgressCallback progress;                  // May be empty.
  Path program_directory;                                  // Where the tool itself lies.
};

// Carries out the line and returns the exit code. Throws nothing but exhausted memory.
[[nodiscard]] int RunCommand(const ParsedLine& line, const Surroundings& surroundings);

}  // namespace tolvarine::updater::update_tool
