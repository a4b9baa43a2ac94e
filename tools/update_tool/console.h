// What TolvarineUpdateTool asks of the system beyond the library's calls. The only part of it that
// includes the system's header.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "text/path_algebra.h"
#include "update/progress.h"

namespace tolvarine::updater::update_tool {

enum class Channel { kOutput, kError };

// Writes UTF-8 text: to a console as the text it is, to anything else as its bytes.
void Print(Channel channel, std::string_view text);

// The directory that this program was started from.
[[nodiscard]] Path ProgramDirectory();

// A line on the console that shows how far a verb has come. It is written only where the error
// channel is a console, at most ten times a second, and never for what takes less than a tenth of
// one.
class ProgressLine {
 public:
  ProgressLine();

  // Always true: the tool is cancelled by ending it, and the same command goes on with its work.
  bool Show(const application::Progress& progress);
  void Clear();

 private:
  std::uint64_t last_shown_ms_;
  std::size_t width_ = 0;
};

}  // namespace tolvarine::updater::update_tool
