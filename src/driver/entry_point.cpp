// The entry point of the program.

#include <cstdint>
#include <exception>

#include "driver/main_sequence.h"
#include "platform/processes.h"

namespace {

namespace platform = tolvarine::updater::platform;

// STATUS_STACK_BUFFER_OVERRUN, the code with which Windows ends a program that fails fast. The
// updater's own exit codes are small numbers, so this code cannot be confused with an outcome.
constexpr std::uint32_t kAbnormalEnd = 0xC0000409;

// Replaces the runtime's abort, which would show its own box and then end with code 3; that is the
// updater's code for "nothing changed". The next run continues from the journal as after a power
// cut, so no destructor needs to run.
void EndAbnormally() { platform::TerminateProcess(platform::GetCurrentProcess(), kAbnormalEnd); }

}  // namespace

// The runtime calls this function by name in a program without a console. Its arguments are
// ignored, since they hold the command line in the ANSI code page; the main sequence reads the
// 16-bit text.
extern "C" int WinMain(void* /*instance*/, void* /*previous*/, char* /*command_line*/,
                       int /*show*/) {
  std::set_terminate(EndAbnormally);
  return tolvarine::updater::RunUpdater();
}
