// What the simulated Windows does beyond the contract in the calls of the application's side: jobs,
// the records of started programs, and the holders of files.

#include <gtest/gtest.h>

#include <array>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/objects.h"
#include "system/processes.h"
#include "system/restart_manager.h"

namespace tolvarine::updater::simulated {
namespace {

using namespace platform;

class ApplicationCallsTest : public testing::Test {
 protected:
  ApplicationCallsTest() {
    computer.MakeCurrent();
    computer.disk.WriteFile(program, "program");
  }
  ~ApplicationCallsTest() override {
    EXPECT_EQ(computer.objects().open_handles(), 0u);
    EXPECT_EQ(computer.objects().bad_closes(), 0u);
  }

  // The record of a program that is started; null where it is not.
  const Process* Start(std::uint32_t flags) {
    std::u16string line = u"program";
    ProcessInformation started;
    if (!CreateProcessW(program.c_str(), line.data(), flags, nullptr, &started)) return nullptr;
    CloseHandle(started.process);
    CloseHandle(started.thread);
    return &computer.processes.by_id.at(started.process_id);
  }

  Process& Own() { return computer.processes.by_id.at(computer.processes.own_id); }

  const std::u16string program = u"C:\\Folder\\Program.exe";
  Computer computer;
};

TEST_F(ApplicationCallsTest, AProgramLeavesItsParentsJobOnlyWhereThatMayBe) {
  struct Case {
    std::optional<std::uint32_t> limits;
    std::uint32_t flags;
    std::optional<bool> in_job;  // Absent: the start is refused.
  };
  const std::array<Case, 6> cases{{{{}, 0, false},
                                   {{}, kCreateBreakawayFromJob, false},
                                   {kJobObjectLimitKillOnJobClose, 0, true},
                                   {kJobObjectLimitKillOnJobClose, kCreateBreakawayFromJob, {}},
                                   {kJobObjectLimitBreakawayOk, kCreateBreakawayFromJob, false},
                                   {kJobObjectLimitSilentBreakawayOk, 0, false}}};
  for (const Case& one : cases) {
    Own().job_limits = one.limits;
    const Process* const started = Start(one.flags);
    EXPECT_EQ(started != nullptr, one.in_job.has_value());
    if (started == nullptr) {
      EXPECT_EQ(GetLastError(), kErrorAccessDenied);
    } else {
      EXPECT_EQ(started->job_limits.has_value(), *one.in_job);
    }
  }
}

TEST_F(ApplicationCallsTest, AStartedProgramIsRecordedAndRunByTheHook) {
  std::uint32_t run = 0;
  computer.processes.on_create = [&](const CreatedProcess& created) { run = created.id; };
  Own().elevated = true;
  const Process* const started = Start(kCreateNoWindow);
  ASSERT_NE(started, nullptr);
  EXPECT_TRUE(started->elevated);
  EXPECT_EQ(started->image, program);
  ASSERT_EQ(computer.processes.created.size(), 1u);
  const CreatedProcess& created = computer.processes.created.front();
  EXPECT_EQ(created.id, run);
  EXPECT_EQ(created.command_line, u"program");
  EXPECT_EQ(created.flags, kCreateNoWindow);
  // A restart of the computer leaves the running program alone.
  computer.Restart();
  EXPECT_EQ(computer.processes.by_id.size(), 1u);
  EXPECT_TRUE(Own().elevated);
}

TEST_F(ApplicationCallsTest, TheRestartManagerNamesHoldersAndRunningPrograms) {
  computer.disk.WriteFile(u"C:\\Folder\\file", "x");
  computer.processes.by_id[70] = {.image = u"C:\\Other\\Reader.exe"};
  computer.processes.by_id[71] = {.image = program, .application_name = u"A Program"};
  computer.processes.by_id[72] = {.gone = true, .image = program};
  const Handle held = computer.disk.Hold(u"C:\\Folder\\file", kGenericRead, kFileShareAll);
  computer.processes.file_holders[held] = 70;
  computer.disk.Hold(u"C:\\Folder\\file", kGenericRead, kFileShareAll);  // Nobody is known to.

  std::uint32_t session = 0;
  EXPECT_EQ(RmStartSession(&session), 0u);
  const std::array files{u"C:\\folder\\FILE", program.c_str()};
  EXPECT_EQ(RmRegisterResources(session, files.data(), 2), 0u);
  std::array<RmProcessInfo, 4> processes;
  std::uint32_t needed = 0;
  std::uint32_t count = 4;
  EXPECT_EQ(RmGetList(session, &needed, &count, processes.data()), 0u);
  ASSERT_EQ(count, 2u);
  EXPECT_EQ(processes[0].application_name, u"Reader.exe");
  EXPECT_EQ(processes[1].application_name, u"A Program");
  EXPECT_EQ(RmEndSession(session), 0u);
}

}  // namespace
}  // namespace tolvarine::updater::simulated
