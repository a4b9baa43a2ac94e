// Where the system enters the program.

#include <cstdint>
#include <exception>

#include "driver/main_sequence.h"
#include "platform/processes.h"

namespace {

namespace platform = tolvarine::updater::platform;

// What the system itself ends a program with that has found its own state broken. The program's
// exit codes are small numbers, so whoever started it cannot take this one for an outcome.
constexpr std::uint32_t kAbnormalEnd = 0xC0000409;

// Takes the place of the runtime's abort, which would show a box of its own and then end with 3, a
// code that says "nothing was changed". The next run goes on from the journal as after a power cut,
// so there is nothing to tidy up, and a destructor could only do harm.
void EndAbnormally() { platform::TerminateProcess(platform::GetCurrentProcess(), kAbnormalEnd); }

}  // namespace

// The runtime's start-up calls this by name in a program without a console. Its arguments are left
// aside: the command line comes from the system, in its full 16-bit text.
extern "C" int WinMain(void* /*instance*/, void* /*previous*/, char* /*command_line*/,
                       int /*show*/) {
  std::set_terminate(EndAbnormally);
  return tolvarine::updater::RunUpdater();
}
