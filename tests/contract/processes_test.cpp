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
  ASSERT_NE(first, kNullHandle);
  const std::uint64_t created = CreationTime(first);
  EXPECT_NE(created, 0u);
  EXPECT_EQ(WaitForSingleObject(first, 0), kWaitTimeout);
  other.end();
  EXPECT_EQ(WaitForSingleObject(first, 0), kWaitObject0);
  // Its id is valid while a handle to it is open.
  const Handle second = OpenProcess(kAccess, other.id);
  EXPECT_EQ(CreationTime(second), created);
  EXPECT_EQ(WaitForSingleObject(second, kInfinite), kWaitObject0);
  other.forget();
  EXPECT_TRUE(CloseHandle(first));
  EXPECT_TRUE(CloseHandle(second));
  // Without handles the id becomes invalid; on Wine, or where a scanner has one, a moment later.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (const Handle ended = OpenProcess(kAccess, other.id)) {
    EXPECT_EQ(WaitForSingleObject(ended, 0), kWaitObject0);
    EXPECT_TRUE(CloseHandle(ended));
    ASSERT_LT(std::chrono::steady_clock::now(), deadline);
  }
  for (const std::uint32_t id : {other.id, 0u, 0xFFFFFFFCu}) {
    EXPECT_EQ(Code(OpenProcess(kAccess, id) != kNullHandle), kErrorInvalidParameter) << id;
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
  EXPECT_EQ(WaitForSingleObject(mutex_, 30), kWaitTimeout);
  EXPECT_EQ(Code(ReleaseMutex(mutex_)), kErrorNotOwner);
  leave(Leaving::kReleasing);
  EXPECT_EQ(WaitForSingleObject(mutex_, 0), kWaitObject0);
  EXPECT_TRUE(ReleaseMutex(mutex_));
}

TEST_F(MutexesTest, TheWaitForAnAbandonedMutexAcquiresIt) {
  HoldElsewhere(name_)(Leaving::kDying);
  EXPECT_EQ(WaitForSingleObject(mutex_, kInfinite), kWaitAbandoned);
  EXPECT_TRUE(ReleaseMutex(mutex_));
  EXPECT_EQ(Code(ReleaseMutex(mutex_)), kErrorNotOwner);
}

}  // namespace
}  // namespace tolvarine::updater::contract
