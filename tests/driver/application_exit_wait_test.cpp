#include "driver/application_exit_wait.h"

#include <gtest/gtest.h>

#include "platform/simulated/objects.h"
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

TEST(ApplicationExitWaitTest, ProcessIsWaitedForByIdAndCreationTime) {
  struct Row {
    simulated::Process process;
    ProcessWaitResult result;
    std::uint64_t elapsed;
  };
  const Row rows[] = {{{.creation_time = kCreated, .exits_after_ms = 0}, Exited, 0},
                      {{.creation_time = kCreated, .exits_after_ms = 59999}, Exited, 59999},
                      {{.creation_time = kCreated}, TimedOut, 60000},
                      {{.creation_time = kCreated + 1}, IdentityChanged, 0},
                      {{.creation_time = kCreated, .open_error = 5}, OpenFailed, 0},
                      {{.creation_time = kCreated, .gone = true}, NotRunning, 0}};
  ForEachRow(rows, [](const Row& row) {
    World world;
    world.MakeCurrent();
    world.processes[kId] = row.process;
    EXPECT_EQ(WaitForApplicationExit(kId, kCreated, 60000), row.result);
    EXPECT_EQ(world.elapsed_ms, row.elapsed);
    EXPECT_EQ(world.objects().open_handles(), 0u);
  });
}

}  // namespace
}  // namespace tolvarine::updater
