#include "driver/application_exit_wait.h"

#include <gtest/gtest.h>

#include "support/update_scenes.h"

namespace tolvarine::updater {
namespace {

using enum ProcessWaitResult;

constexpr std::uint32_t kId = 7;
constexpr std::uint64_t kCreated = 133'000'000'000'000'001;

struct Answers {
  platform::Handle handle;
  std::uint32_t open_error;
  bool queries;
  std::uint64_t created;
  std::uint32_t wait;
  ProcessWaitResult result;
  bool safe;
};

struct FakeApi : ProcessWaitApi {
  explicit FakeApi(const Answers& all) : answers(all) {}

  platform::Handle OpenProcessHandle(std::uint32_t id, std::uint32_t access,
                                     std::uint32_t& error) override {
    EXPECT_EQ(id, kId);
    EXPECT_EQ(access, 0x101000u);
    error = answers.open_error;
    return answers.handle;
  }
  bool GetProcessCreationTime(platform::Handle, std::uint64_t& time, std::uint32_t&) override {
    time = answers.created;
    return answers.queries;
  }
  std::uint32_t WaitForProcess(platform::Handle, std::uint32_t timeout, std::uint32_t&) override {
    EXPECT_EQ(timeout, 60000u);
    EXPECT_EQ(answers.created, kCreated) << "a wait for a stranger";
    return answers.wait;
  }
  void CloseProcessHandle(platform::Handle process) override { closed.push_back(process); }

  const Answers& answers;
  std::vector<platform::Handle> closed;
};

TEST(ApplicationExitWaitTest, AnswersOfThePlatformDecide) {
  const Answers rows[] = {{0, 87, true, 0, 0, NotRunning, true},
                          {0, 5, true, 0, 0, OpenFailed, false},
                          {0, 0, true, 0, 0, OpenFailed, false},
                          {4, 0, false, kCreated, 0, QueryFailed, false},
                          {4, 0, true, kCreated + 1, 0, IdentityChanged, true},
                          {4, 0, true, kCreated, 0, Exited, true},
                          {4, 0, true, kCreated, 0x102, TimedOut, false},
                          {4, 0, true, kCreated, 0x80, WaitFailed, false},
                          {4, 0, true, kCreated, 0xFFFFFFFF, WaitFailed, false}};
  ForEachRow(rows, [](const Answers& row) {
    FakeApi api(row);
    EXPECT_EQ(WaitForApplicationExit(api, kId, kCreated, 60000), row.result);
    EXPECT_EQ(api.closed, std::vector<platform::Handle>(row.handle == 0 ? 0 : 1, row.handle));
    EXPECT_EQ(IsProcessWaitSafe(row.result), row.safe);
  });
}

}  // namespace
}  // namespace tolvarine::updater
