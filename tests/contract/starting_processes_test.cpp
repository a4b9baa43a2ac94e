// What runs, and the start of a program.

#include "system/processes.h"

#include <algorithm>
#include <vector>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

constexpr std::uint32_t kErrorInsufficientBuffer = 122;

Path ImageOf(Handle process, std::uint32_t size = 260) {
  std::u16string image(size, u'\0');
  if (!QueryFullProcessImageNameW(process, image.data(), &size)) return {};
  return image.substr(0, size);
}

std::uint64_t CreationTime(Handle process) {
  std::uint64_t creation = 0, exit = 0, kernel = 0, user = 0;
  return GetProcessTimes(process, &creation, &exit, &kernel, &user) ? creation : 0;
}

std::vector<std::uint32_t> ProcessIds(std::uint32_t capacity) {
  std::vector<std::uint32_t> ids(capacity);
  std::uint32_t count = 0;
  EXPECT_TRUE(K32EnumProcesses(ids.data(), capacity, &count));
  ids.resize(count);
  return ids;
}

using RunningProcessesTest = ContractTest;

TEST_F(RunningProcessesTest, TheListNamesThisProcessAndOthersWithTheirImages) {
  const OtherProcess other = StartProcess();
  const std::vector<std::uint32_t> ids = ProcessIds(4096);
  EXPECT_EQ(1, std::ranges::count(ids, GetCurrentProcessId()));
  EXPECT_EQ(1, std::ranges::count(ids, other.id));
  EXPECT_EQ(1u, ProcessIds(1).size()) << "a list that is too long is cut off";

  const Path own_image = ImageOf(GetCurrentProcess());
  const Handle opened = OpenProcess(kProcessQueryLimitedInformation, other.id);
  EXPECT_EQ(own_image, ImageOf(opened));
  EXPECT_TRUE(CloseHandle(opened));
  const auto exact_size = static_cast<std::uint32_t>(own_image.size());
  EXPECT_EQ(own_image, ImageOf(GetCurrentProcess(), exact_size + 1));
  EXPECT_EQ(u"", ImageOf(GetCurrentProcess(), exact_size));
  EXPECT_EQ(kErrorInsufficientBuffer, GetLastError());
  other.end();
  other.forget();
}

TEST_F(RunningProcessesTest, ThisProcessIsOneAndTheSameByItsIdAndByItsStandIn) {
  const Handle opened = OpenProcess(kProcessQueryLimitedInformation, GetCurrentProcessId());
  EXPECT_NE(0u, CreationTime(opened));
  EXPECT_EQ(CreationTime(opened), CreationTime(GetCurrentProcess()));
  EXPECT_TRUE(CloseHandle(opened));
}

TEST_F(RunningProcessesTest, AHandleThatMayNotAskIsRefused) {
  const Handle opened = OpenProcess(kSynchronize, GetCurrentProcessId());
  EXPECT_EQ(u"", ImageOf(opened));
  EXPECT_EQ(kErrorAccessDenied, GetLastError());
  EXPECT_TRUE(CloseHandle(opened));
}

TEST_F(RunningProcessesTest, AJobHasItsLimitsAndATokenItsElevation) {
  bool in_job = false;
  std::uint32_t limits = 0;
  EXPECT_TRUE(IsProcessInJob(GetCurrentProcess(), &in_job));
  // Whether the tests run in a job is their caller's choice.
  // A process in no job is told of no limits there.
  EXPECT_BUT_ON_WINE(kWine8And10, QueryInformationJobObject(&limits), in_job, true);
  EXPECT_TRUE(in_job || limits == 0);
  Handle token = kNullHandle;
  TokenElevation elevation;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), &token));
  EXPECT_TRUE(GetTokenInformation(token, &elevation));
  EXPECT_TRUE(CloseHandle(token));
  EXPECT_FALSE(GetTokenInformation(token, &elevation));
}

class ProcessStartTest : public ContractTest {
 protected:
  ProcessStartTest() {
    const Path image = ImageOf(GetCurrentProcess());
    EXPECT_EQ(0u, Code(CopyFileW(image.c_str(), program_.c_str(), true)));
  }

  // Starts a program that ends by itself; the code.
  std::uint32_t Start(const Path& program, const char16_t* directory,
                      ProcessInformation* information) {
    Path command_line = u"\"" + program + u"\" --gtest_filter=None";
    return Code(CreateProcessW(program.c_str(), command_line.data(), kDetachedProcess, directory,
                               information));
  }

  const Path program_ = At(u"program 1.exe");
};

TEST_F(ProcessStartTest, AStartedProgramIsKnownByIdAndWaitedFor) {
  ProcessInformation started;
  ASSERT_EQ(0u, Start(program_, root().c_str(), &started));
  const Handle opened = OpenProcess(kProcessQueryLimitedInformation, started.process_id);
  EXPECT_NE(0u, CreationTime(opened));
  EXPECT_EQ(CreationTime(opened), CreationTime(started.process));
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(started.process, 60'000));
  for (const Handle handle : {opened, started.process, started.thread}) {
    EXPECT_TRUE(CloseHandle(handle));
  }
}

TEST_F(ProcessStartTest, AProgramThatCannotBeStartedSaysWhy) {
  ProcessInformation started;
  EXPECT_EQ(kErrorFileNotFound, Start(At(u"none.exe"), nullptr, &started));
  EXPECT_EQ(kErrorPathNotFound, Start(At(u"none\\none.exe"), nullptr, &started));
  // Another code for a directory there.
  EXPECT_BUT_ON_WINE(kWine8And10, Start(root(), nullptr, &started), kErrorAccessDenied, 6u);
  EXPECT_EQ(kErrorDirectory, Start(program_, At(u"none").c_str(), &started));
  {
    const File writer(program_, kGenericWrite);
    EXPECT_EQ(kErrorSharingViolation, Start(program_, nullptr, &started));
  }
  EXPECT_EQ(kNullHandle, started.process);
  // Who only reads it and lets others read does not stand in the way.
  const File reader(program_, kGenericRead, kFileShareRead);
  ASSERT_EQ(0u, Start(program_, nullptr, &started));
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(started.process, 60'000));
  EXPECT_TRUE(CloseHandle(started.process));
  EXPECT_TRUE(CloseHandle(started.thread));
}

}  // namespace
}  // namespace tolvarine::updater::contract
