// Short words for tests that run the engine on a staged update.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "engine/transaction_run.h"
#include "journal/journal_store.h"
#include "support/update_scenes.h"

namespace tolvarine::updater {

inline std::ostream& operator<<(std::ostream& stream, TransactionPhase phase) {
  return stream << "phase " << static_cast<int>(phase);
}

// The entries of the typical plan, in their order. The first two are deletions; numbers 1, 2 and 4
// have no baseline.
inline constexpr std::uint64_t kEntries = 7;
inline constexpr std::uint64_t kReadme = 5;
inline constexpr std::uint64_t kApplication = 6;

struct Ran {
  TransactionPhase status{};
  std::string error;  // What the caller is told.
  TransactionResult result;
};

inline Ran RunEngine(const SimulatedUpdate& update, TransactionHook hook = {},
                     RecoveryPolicy policy = RecoveryPolicy::ResumeForward) {
  TransactionRequest request = update.Request();
  request.crash_hook = std::move(hook);
  request.recovery_policy = policy;
  Ran ran{.error = "left over from earlier", .result = {}};
  ran.result = RunTransaction(request, &ran.error);
  ran.status = ran.result.status;
  return ran;
}

struct HookPoint {
  CrashPoint point{};
  std::uint64_t entry = 0;

  bool operator==(const HookPoint&) const = default;
};

// Acts whenever one moment of the run comes.
inline TransactionHook At(const HookPoint& moment, std::function<void()> act) {
  return [=](CrashPoint point, std::uint64_t entry) {
    if (moment == HookPoint{point, entry}) act();
  };
}

inline constexpr char kPlanned[] = "planned failure";

inline void Crash() { throw SimulatedCrash{}; }
inline void FailAsPlanned() { throw std::runtime_error(kPlanned); }

// The record on the disk.
inline TransactionJournal SavedRecord(const SimulatedUpdate& update) {
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  if (!loaded.journal) throw std::logic_error("the scene needs a journal");
  return *loaded.journal;
}

// An earlier process left its transaction in the middle of a phase. None leaves nothing.
inline Act LeftIn(TransactionPhase phase) {
  using enum TransactionPhase;
  const bool back = phase == Rollback || phase == RolledBack;
  const auto hook = [=](CrashPoint point, std::uint64_t entry) {
    if (back) At({CrashPoint::ApplyEntryDone, kReadme}, FailAsPlanned)(point, entry);
    if (phase == Backup) At({CrashPoint::BackupEntryDone, 3}, Crash)(point, entry);
    if (phase == Apply) At({CrashPoint::ApplyEntryDone, kReadme}, Crash)(point, entry);
    if (phase == Rollback) At({CrashPoint::RollbackEntryDone, 3}, Crash)(point, entry);
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

// What happens, before the run or at a moment of it, and how the run then ends.
struct Trouble {
  Act act;
  TransactionPhase status;
  std::string error;
  std::optional<HookPoint> moment{};
};

// Where the run says that the target is untouched or restored, it is. The target lies on D.
inline void ExpectTrouble(const std::vector<Trouble>& rows) {
  using enum TransactionPhase;
  ForEachRow(rows, [](const Trouble& row) {
    UpdatePlan plan = TypicalPlan();
    plan.target_drive = u'D';
    SimulatedUpdate update(plan);
    const Path target = update.target;
    auto expected = update.computer.disk.Tree(target);
    const auto act = [&] {
      row.act(update);
      if (row.status != RolledBack) expected = update.computer.disk.Tree(target);
    };
    if (!row.moment) act();
    const Ran ran = RunEngine(update, row.moment ? At(*row.moment, act) : TransactionHook());
    EXPECT_EQ(ran.status, row.status);
    EXPECT_EQ(ran.error, Text(update, row.error));
    if (row.status != Rollback && row.status != Committed) {
      EXPECT_EQ(update.computer.disk.Tree(target), expected);
    }
  });
}

}  // namespace tolvarine::updater
