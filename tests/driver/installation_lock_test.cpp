#include "driver/installation_lock.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "simulated_windows/objects.h"
#include "support/update_changes.h"

namespace tolvarine::updater {
namespace {

using enum LockAcquireResult;
using simulated::MutexHolder;

const std::u16string kKey(simulated::kInstallKey);
const std::u16string kName = u"Local\\TolvarineUpdater-Installation-" + kKey;

TEST(InstallationLockTest, OwnerDecidesHowTheWaitEnds) {
  struct LockCase {
    const char* name;
    std::optional<MutexHolder> holder;
    std::int64_t timeout;
    LockAcquireResult result;
    std::uint64_t elapsed;
  };
  const LockCase cases[] = {
      {"free", {}, 0, Acquired, 0},
      {"negative timeout", {}, -1, Failed, 0},
      {"owned", MutexHolder{}, 1000, TimedOut, 1000},
      {"owned, longest timeout", MutexHolder{}, 0x1FFFFFFFF, TimedOut, 0xFFFFFFFE},
      {"released", MutexHolder{400, false}, 1000, Acquired, 400},
      {"abandoned", MutexHolder{400, true}, 1000, Acquired, 400}};
  ForEachCase(cases, [](const LockCase& each) {
    Computer computer;
    computer.MakeCurrent();
    if (each.holder) computer.processes.mutex_holders[kName] = *each.holder;
    InstallationLock lock(kKey);
    InstallationLock other(std::u16string(64, u'0'));
    EXPECT_EQ(lock.Acquire(each.timeout), each.result);
    EXPECT_EQ(computer.clock.elapsed_ms, each.elapsed);
    EXPECT_EQ(other.Acquire(0), Acquired);
  });
}

TEST(InstallationLockTest, MutexIsReleasedOnceAndOnlyIfOwned) {
  Computer computer;
  computer.MakeCurrent();
  computer.calls.keep_trace = true;
  const auto releases = [&] {
    return std::ranges::count(computer.calls.trace, Call::ReleaseMutex, &CallRecord::call);
  };
  {
    InstallationLock lock(kKey);
    computer.calls.Inject({.call = Call::WaitForSingleObject});
    EXPECT_EQ(lock.Acquire(1000), Failed);
    EXPECT_EQ(lock.Acquire(1000), Acquired);
    EXPECT_EQ(lock.Acquire(1000), Failed);
    lock.Release();
    EXPECT_EQ(computer.objects().open_handles(), 0u);
    EXPECT_EQ(lock.Acquire(1000), Failed);
  }
  { const InstallationLock never_acquired(kKey); }
  EXPECT_EQ(releases(), 1);
  computer.processes.mutex_create_errors[kName] = 6;
  EXPECT_EQ(InstallationLock(kKey).Acquire(1000), Failed);
  EXPECT_EQ(InstallationLock(kKey.substr(1) + u'A').Acquire(1000), Failed);
  EXPECT_EQ(computer.objects().open_handles() + computer.objects().bad_closes(), 0u);
}

}  // namespace
}  // namespace tolvarine::updater
