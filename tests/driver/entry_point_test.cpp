// The entry point on the simulated computer. The driver's library leaves it out, so this test
// program compiles it itself.

#include <gtest/gtest.h>

#include <exception>

#include "driver/update_log.h"
#include "support/update_changes.h"

extern "C" int WinMain(void* instance, void* previous, char* command_line, int show);

namespace tolvarine::updater {
namespace {

TEST(EntryPointTest, AbnormalEndTerminatesTheProcessWithItsOwnCode) {
  SimulatedUpdate update;
  UpdateLogPath().clear();
  const std::terminate_handler previous = std::get_terminate();
  EXPECT_EQ(WinMain(nullptr, nullptr, nullptr, 0), 0);
  const std::terminate_handler handler = std::set_terminate(previous);
  ASSERT_NE(handler, previous);
  handler();  // On the simulated computer TerminateProcess returns.
  EXPECT_EQ(update.computer.processes.terminated_with, 0xC0000409u);
  EXPECT_TRUE(update.computer.desktop.boxes.empty());
}

}  // namespace
}  // namespace tolvarine::updater
