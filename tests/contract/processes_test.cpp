// Other processes and mutexes.

#include "platform/processes.h"

#include <chrono>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

constexpr std::uint32_t kErrorNotOwner = 288;

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

}  // namespace
}  // namespace tolvarine::updater::contract
