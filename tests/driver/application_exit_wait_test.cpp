#include "driver/application_exit_wait.h"

#include <gtest/gtest.h>

#include "simulated_windows/objects.h"
#include "support/update_changes.h"

namespace tolvarine::updater {
namespace {

using enum ProcessWaitResult;

constexpr std::uint32_t kId = 7;
constexpr std::uint64_t kCreated = 133'000'000'000'000'001;

struct WaitCase {
  const char* name;
  simulated::Process process;
  std::optional<Call> failing;
  ProcessWaitResult result;
  bool safe;
  std::uint64_t elapsed;
};

TEST(ApplicationExitWaitTest, ResultsOfThePlatformDecide) {
  const WaitCase cases[] = {
      {"no process", {.gone = true}, {}, NotRunning, true, 0},
      {"open denied", {.open_error = 5}, {}, OpenFailed, false, 0},
      {"query fails", {kCreated}, Call::GetProcessTimes, QueryFailed, false, 0},
      {"another process", {kCreated + 1}, {}, IdentityChanged, true, 0},
      {"ends", {kCreated, 400}, {}, Exited, true, 400},
      {"runs on", {kCreated}, {}, TimedOut, false, 1000},
      {"wait fails", {kCreated}, Call::WaitForSingleObject, WaitFailed, false, 0}};
  ForEachCase(cases, [](const WaitCase& each) {
    Computer computer;
    computer.MakeCurrent();
    computer.processes.by_id[kId] = each.process;
    if (each.failing) computer.calls.Inject({.call = *each.failing});
    EXPECT_EQ(WaitForApplicationExit(kId, kCreated, 1000), each.result);
    EXPECT_EQ(IsProcessWaitSafe(each.result), each.safe);
    EXPECT_EQ(computer.clock.elapsed_ms, each.elapsed);
    EXPECT_EQ(computer.objects().open_handles(), 0u);
  });
}

// A failing open that sets no code must not be judged by the code of an earlier call: 87 would mean
// that the process is gone.
TEST(ApplicationExitWaitTest, CodeOfAnEarlierCallIsForgotten) {
  Computer computer;
  computer.MakeCurrent();
  computer.last_error = 87;
  bool opened = false;
  computer.calls.before_call = [&](const CallRecord& record) {
    if (record.call != Call::OpenProcess) return;
    opened = true;
    computer.calls.Inject({.call = Call::OpenProcess, .code = computer.last_error});
  };
  EXPECT_EQ(WaitForApplicationExit(kId, kCreated, 0), OpenFailed);
  EXPECT_TRUE(opened);
}

}  // namespace
}  // namespace tolvarine::updater
