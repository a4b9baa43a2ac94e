#include "driver/installation_lock.h"

#include <gtest/gtest.h>

#include "simulated_windows/objects.h"
#include "support/update_scenes.h"

namespace tolvarine::updater {
namespace {

using enum LockAcquireResult;
using simulated::MutexHolder;

const std::u16string kKey(simulated::kInstallKey);
const std::u16string kName = u"Local\\TolvarineUpdater-Installation-" + kKey;

// The calls that were made, by name, and forgets them.
std::string Calls(Computer& computer) {
  std::string names;
  for (const CallRecord& record : computer.calls.trace)
    names.append(CallName(record.call)).append(" ");
  computer.calls.trace.clear();
  return names;
}

TEST(InstallationLockTest, OwnerDecidesHowTheWaitEnds) {
  struct Row {
    std::optional<MutexHolder> holder;
    std::int64_t timeout;
    LockAcquireResult result;
    std::uint64_t elapsed;
  };
  const Row rows[] = {{{}, 0, Acquired, 0},
                      {{}, -1, Failed, 0},
                      {MutexHolder{}, 1000, TimedOut, 1000},
                      {MutexHolder{}, 0, TimedOut, 0},
                      {MutexHolder{}, 0x1FFFFFFFF, TimedOut, 0xFFFFFFFE},
                      {MutexHolder{400, false}, 1000, Acquired, 400},
                      {MutexHolder{400, true}, 1000, Acquired, 400}};
  ForEachRow(rows, [](const Row& row) {
    Computer computer;
    computer.MakeCurrent();
    if (row.holder) computer.processes.mutex_holders[kName] = *row.holder;
    InstallationLock lock(kKey);
    InstallationLock other(std::u16string(64, u'0'));
    EXPECT_EQ(lock.Acquire(row.timeout), row.result);
    EXPECT_EQ(computer.clock.elapsed_ms, row.elapsed);
    EXPECT_EQ(other.Acquire(0), Acquired);
  });
}

TEST(InstallationLockTest, WhatIsOwnedIsReleasedOnceAndThenClosed) {
  Computer computer;
  computer.MakeCurrent();
  computer.calls.keep_trace = true;
  {
    InstallationLock lock(kKey);
    computer.calls.Inject({.call = Call::WaitForSingleObject});
    EXPECT_EQ(lock.Acquire(1000), Failed);
    EXPECT_EQ(Calls(computer), "CreateMutexW WaitForSingleObject ");
    EXPECT_EQ(lock.Acquire(1000), Acquired);
    EXPECT_EQ(lock.Acquire(1000), Failed);  // Without a wait.
    lock.Release();
    lock.Release();
    EXPECT_EQ(lock.Acquire(1000), Failed);
  }
  EXPECT_EQ(Calls(computer), "WaitForSingleObject ReleaseMutex CloseHandle ");
  static_cast<void>(InstallationLock(kKey));  // Never acquired.
  EXPECT_EQ(Calls(computer), "CreateMutexW CloseHandle ");
  computer.processes.mutex_create_errors[kName] = 6;
  EXPECT_EQ(InstallationLock(kKey).Acquire(1000), Failed);
  EXPECT_EQ(Calls(computer), "CreateMutexW ");
  EXPECT_EQ(InstallationLock(kKey.substr(1) + u'A').Acquire(1000), Failed);
  EXPECT_EQ(Calls(computer), "");
  EXPECT_EQ(computer.objects().open_handles() + computer.objects().bad_closes(), 0u);
}

}  // namespace
}  // namespace tolvarine::updater
