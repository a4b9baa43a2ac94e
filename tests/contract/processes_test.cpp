// Other processes, mutexes, the clock.

#include "platform/processes.h"

#include <chrono>
#include <cstdlib>

#include "contract/fixture.h"
#include "platform/time.h"

namespace tolvarine::updater::contract {
namespace {

constexpr std::uint32_t kErrorNotOwner = 288;
constexpr std::uint32_t kErrorInvalidHandle = 6;

constexpr std::uint32_t kAccess = kProcessQueryLimitedInformation | kSynchronize;

using ProcessesTest = ContractTest;

std::uint64_t CreationTime(Handle process) {
  std::uint64_t creation = 0, exit = 0, kernel = 0, user = 0;
  return GetProcessTimes(process, &creation, &exit, &kernel, &user) ? creation : 0;
}

TEST_F(ProcessesTest, AProcessIsKnownByItsCreationTimeAndWaitedFor) {
  const OtherProcess other = StartProcess();
  const Handle first = OpenProcess(kAccess, other.id);
  ASSERT_NE(kNullHandle, first);
  const std::uint64_t created = CreationTime(first);
  EXPECT_NE(0u, created);
  EXPECT_EQ(kWaitTimeout, WaitForSingleObject(first, 0));
  other.end();
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(first, 0));
  // Its id names it as long as somebody has it open.
  const Handle second = OpenProcess(kAccess, other.id);
  EXPECT_EQ(created, CreationTime(second));
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(second, kInfinite));
  other.forget();
  EXPECT_TRUE(CloseHandle(first));
  EXPECT_TRUE(CloseHandle(second));
  // Then it names nothing; on Wine, and wherever else somebody looks on, a moment later.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (const Handle ended = OpenProcess(kAccess, other.id)) {
    EXPECT_EQ(kWaitObject0, WaitForSingleObject(ended, 0));
    EXPECT_TRUE(CloseHandle(ended));
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }
  for (const std::uint32_t id : {other.id, 0u, 0xFFFFFFFCu}) {
    EXPECT_EQ(kErrorInvalidParameter, Code(OpenProcess(kAccess, id) != kNullHandle)) << id;
  }
}

class MutexesTest : public ContractTest {
 protected:
  ~MutexesTest() override { CloseHandle(mutex_); }

  const std::u16string name_ = u"Local\\TolvarineUpdater-Contract-Mutex";
  const Handle mutex_ = CreateMutexW(false, name_.c_str());
};

TEST_F(MutexesTest, AHeldMutexIsWaitedForUntilItIsReleased) {
  const auto leave = HoldElsewhere(name_);
  EXPECT_EQ(kWaitTimeout, WaitForSingleObject(mutex_, 30));
  EXPECT_EQ(kErrorNotOwner, Code(ReleaseMutex(mutex_)));
  leave(Leaving::kReleasing);
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(mutex_, 0));
  EXPECT_TRUE(ReleaseMutex(mutex_));
}

TEST_F(MutexesTest, AnAbandonedMutexIsOwnedByWhoIsTold) {
  HoldElsewhere(name_)(Leaving::kDying);
  EXPECT_EQ(kWaitAbandoned, WaitForSingleObject(mutex_, kInfinite));
  EXPECT_TRUE(ReleaseMutex(mutex_));
  EXPECT_EQ(kErrorNotOwner, Code(ReleaseMutex(mutex_)));
}

TEST_F(MutexesTest, AnOwnerReleasesAsOftenAsItTook) {
  const Handle again = CreateMutexW(true, name_.c_str());
  EXPECT_EQ(kErrorAlreadyExists, GetLastError());
  EXPECT_EQ(kErrorNotOwner, Code(ReleaseMutex(again))) << "what exists is not owned by creation";
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(mutex_, 0));
  EXPECT_EQ(kWaitObject0, WaitForSingleObject(again, 0));
  EXPECT_TRUE(ReleaseMutex(mutex_) && ReleaseMutex(mutex_));
  EXPECT_EQ(kErrorNotOwner, Code(ReleaseMutex(mutex_)));
  EXPECT_TRUE(CloseHandle(again));
}

TEST_F(MutexesTest, NamesHaveCaseAndOneKindOfObject) {
  const auto leave = HoldElsewhere(name_);
  const Handle other = CreateMutexW(true, u"Local\\TolvarineUpdater-Contract-MUTEX");
  EXPECT_EQ(0u, GetLastError());
  EXPECT_TRUE(ReleaseMutex(other) && CloseHandle(other));
  leave(Leaving::kReleasing);
  const std::u16string taken = u"Local\\TolvarineUpdater-Contract-Event";
  const auto event = TakeNameByEvent(taken);
  EXPECT_EQ(kErrorInvalidHandle, Code(CreateMutexW(false, taken.c_str()) != kNullHandle));
}

TEST_F(ProcessesTest, TheLocalTimeAndItsZoneArePossible) {
  SystemTime now;
  GetLocalTime(&now);
  EXPECT_GE(now.year, 2024u);
  EXPECT_TRUE(now.month - 1 < 12 && now.day - 1 < 31 && now.hour < 24 && now.minute < 60 &&
              now.second < 60 && now.milliseconds < 1000);
  TimeZoneInformation zone;
  EXPECT_LE(GetTimeZoneInformation(&zone), kTimeZoneIdDaylight);
  EXPECT_LE(std::abs(zone.bias), 14 * 60);
  EXPECT_LE(std::abs(zone.daylight_bias), 60);
}

}  // namespace
}  // namespace tolvarine::updater::contract
