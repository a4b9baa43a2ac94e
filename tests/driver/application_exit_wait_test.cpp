#include "driver/application_exit_wait.h"

#include <gtest/gtest.h>

#include "support/update_changes.h"

namespace tolvarine::updater {
namespace {

using enum ProcessWaitResult;

constexpr std::uint32_t kId = 7;
constexpr std::uint64_t kCreated = 133'000'000'000'000'001;

struct PlatformResults {
  const char* name;
  platform::Handle handle;
  std::uint32_t open_error;
  bool queries;
  std::uint64_t created;
  std::uint32_t wait;
  ProcessWaitResult result;
  bool safe;
};

struct FakeApi : ProcessWaitApi {
  explicit FakeApi(const PlatformResults& all) : results(all) {}

  platform::Handle OpenProcessHandle(std::uint32_t id, std::uint32_t access,
                                     std::uint32_t& error) override {
    EXPECT_EQ(id, kId);
    EXPECT_EQ(access, 0x101000u);
    error = results.open_error;
    return results.handle;
  }
  bool GetProcessCreationTime(platform::Handle, std::uint64_t& time, std::uint32_t&) override {
    time = results.created;
    return results.queries;
  }
  std::uint32_t WaitForProcess(platform::Handle, std::uint32_t timeout, std::uint32_t&) override {
    EXPECT_EQ(timeout, 60000u);
    EXPECT_EQ(results.created, kCreated) << "a wait for another process";
    return results.wait;
  }
  void CloseProcessHandle(platform::Handle process) override { closed.push_back(process); }

  const PlatformResults& results;
  std::vector<platform::Handle> closed;
};

TEST(ApplicationExitWaitTest, ResultsOfThePlatformDecide) {
  const PlatformResults cases[] = {
      {"no process", 0, 87, true, 0, 0, NotRunning, true},
      {"open denied", 0, 5, true, 0, 0, OpenFailed, false},
      {"open fails without a code", 0, 0, true, 0, 0, OpenFailed, false},
      {"query fails", 4, 0, false, kCreated, 0, QueryFailed, false},
      {"another process", 4, 0, true, kCreated + 1, 0, IdentityChanged, true},
      {"ends", 4, 0, true, kCreated, 0, Exited, true},
      {"runs on", 4, 0, true, kCreated, 0x102, TimedOut, false},
      {"wait abandoned", 4, 0, true, kCreated, 0x80, WaitFailed, false},
      {"wait fails", 4, 0, true, kCreated, 0xFFFFFFFF, WaitFailed, false}};
  ForEachCase(cases, [](const PlatformResults& each) {
    FakeApi api(each);
    EXPECT_EQ(WaitForApplicationExit(api, kId, kCreated, 60000), each.result);
    EXPECT_EQ(api.closed, std::vector<platform::Handle>(each.handle == 0 ? 0 : 1, each.handle));
    EXPECT_EQ(IsProcessWaitSafe(each.result), each.safe);
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
