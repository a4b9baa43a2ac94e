// Runs of the engine on a staged update, for tests.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine/transaction_run.h"
#include "journal/journal_store.h"
#include "support/update_changes.h"

namespace tolvarine::updater {

inline std::ostream& operator<<(std::ostream& stream, TransactionPhase phase) {
  return stream << "phase " << static_cast<int>(phase);
}

// The entries of the typical plan, in their order. The first two are deletions; entries 1, 2 and 4
// have no baseline.
inline constexpr std::uint64_t kEntries = 7;
inline constexpr std::uint64_t kReadme = 5;
inline constexpr std::uint64_t kApplication = 6;

struct EngineRun {
  TransactionPhase status{};
  std::string error;  // What RunTransaction stores for its caller.
  TransactionResult result;
};

inline EngineRun RunEngine(const SimulatedUpdate& update, TransactionHook hook = {},
                           RecoveryPolicy policy = RecoveryPolicy::ResumeForward) {
  TransactionRequest request = update.Request();
  request.crash_hook = std::move(hook);
  request.recovery_policy = policy;
  EngineRun run{.error = "left over from earlier", .result = {}};
  run.result = RunTransaction(request, &run.error);
  run.status = run.result.status;
  return run;
}

struct HookPoint {
  CrashPoint point{};
  std::uint64_t entry = 0;

  bool operator==(const HookPoint&) const = default;
};

// A hook that calls `action` at one point, which the run must reach.
inline TransactionHook At(const HookPoint& at, std::function<void()> action) {
  const auto check = std::make_shared<FiredCheck>(
      "hook point " + std::to_string(static_cast<int>(at.point)) + " of an entry");
  return [=](CrashPoint point, std::uint64_t entry) {
    if (at != HookPoint{point, entry}) return;
    check->Fire();
    action();
  };
}

inline constexpr char kPlanned[] = "planned failure";

inline void Crash() { throw SimulatedCrash{}; }
inline void FailAsPlanned() { throw std::runtime_error(kPlanned); }

// The record on the disk.
inline TransactionJournal SavedRecord(const SimulatedUpdate& update) {
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  if (!loaded.journal) throw std::logic_error("the test needs a journal");
  return *loaded.journal;
}

// An earlier process has left its transaction in this phase. None leaves nothing.
inline Change LeftIn(TransactionPhase phase) {
  using enum TransactionPhase;
  const auto hook = [=](CrashPoint point, std::uint64_t entry) {
    const HookPoint at{point, entry};
    const bool back = phase == Rollback || phase == RolledBack;
    if (back && at == HookPoint{CrashPoint::ApplyEntryDone, kReadme}) FailAsPlanned();
    if (phase == Backup && at == HookPoint{CrashPoint::BackupEntryDone, 3}) Crash();
    if (phase == Apply && at == HookPoint{CrashPoint::ApplyEntryDone, kReadme}) Crash();
    if (phase == Rollback && at == HookPoint{CrashPoint::RollbackEntryDone, 3}) Crash();
  };
  return [=](SimulatedUpdate& u) {
    if (phase == None) return;
    try {
      RunEngine(u, hook);
    } catch (const SimulatedCrash&) {
    }
    EXPECT_EQ(SavedRecord(u).phase, phase);
  };
}

// A run that ends otherwise than in Committed because of a change, which is made before the run
// or at a hook point of it.
struct FailureCase {
  const char* name;
  Change change;
  TransactionPhase status;
  std::string error;
  std::optional<HookPoint> point{};
};

// Checks status and error of each run. If the status says that the target is untouched or restored,
// the target must be as it was before. The target is on D, the state directory on C.
inline void ExpectFailures(const std::vector<FailureCase>& cases) {
  using enum TransactionPhase;
  ForEachCase(cases, [](const FailureCase& each) {
    UpdatePlan plan = TypicalPlan();
    plan.target_drive = u'D';
    SimulatedUpdate update(plan);
    const Path target = update.target;
    auto expected = update.computer.disk.Tree(target);
    const auto apply = [&] {
      each.change(update);
      if (each.status != RolledBack) expected = update.computer.disk.Tree(target);
    };
    if (!each.point) apply();
    const EngineRun run =
        RunEngine(update, each.point ? At(*each.point, apply) : TransactionHook());
    EXPECT_EQ(run.status, each.status);
    EXPECT_EQ(run.error, ResolveIn(update, each.error));
    if (each.status != Rollback) {
      EXPECT_EQ(update.computer.disk.Tree(target), expected);
    }
  });
}

}  // namespace tolvarine::updater
