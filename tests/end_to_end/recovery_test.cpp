#include <gtest/gtest.h>

#include <stdexcept>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

constexpr std::uint64_t kLastEntry = 7;  // The usual update has one deletion and seven files.

struct HookPoint {
  CrashPoint point;
  std::uint64_t entry;
  auto operator<=>(const HookPoint&) const = default;
};

constexpr HookPoint kNever = {CrashPoint::RollbackEntryDone, kLastEntry + 1};

TransactionHook CrashAt(HookPoint crash) {
  return [=](CrashPoint point, std::uint64_t entry) {
    if (HookPoint{point, entry} == crash) throw SimulatedCrash();
  };
}

// Fails after all work is done and before the last of it is counted, so that all of it is undone.
TransactionHook FailThenCrashAt(HookPoint crash) {
  return [=](CrashPoint point, std::uint64_t entry) {
    if (HookPoint{point, entry} == HookPoint{CrashPoint::ApplyEntryDone, kLastEntry}) {
      throw std::runtime_error("a failure");
    }
    CrashAt(crash)(point, entry);
  };
}

TEST(Recovery, WhatWasOnItsWayIsCarriedOnFromEachPhase) {
  using enum TransactionPhase;
  const std::pair<TransactionPhase, TransactionHook> rows[] = {
      {Backup, CrashAt({CrashPoint::BackupEntryDone, 2})},
      {Apply, CrashAt({CrashPoint::ApplySourceVerified, 3})},
      {Committed, CrashAt({CrashPoint::ApplyFinished, kLastEntry + 1})},
      {Rollback, FailThenCrashAt({CrashPoint::RollbackEntryDone, 4})},
      {RolledBack, FailThenCrashAt(kNever)},
  };
  for (const auto& [phase, hook] : rows) {
    SCOPED_TRACE(static_cast<int>(phase));
    RealUpdate update;
    update.RunEngine(hook);
    ASSERT_EQ(update.SavedPhase(), phase);
    if (phase == Rollback) {
      EXPECT_EQ(update.Run(),
                ErrorBox("The update failed. The original installation was restored.") + Exit(5));
      EXPECT_EQ(update.Target(), update.Baseline());
    }
    EXPECT_EQ(update.Run(), Exit(0));
    update.ExpectInstalled();
    EXPECT_FALSE(std::filesystem::exists(update.layout.transaction));
  }
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
