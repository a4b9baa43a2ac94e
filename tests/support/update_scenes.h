// Short words for tests that run the engine or the driver on a staged update.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

#include "engine/transaction_run.h"
#include "journal/journal_store.h"
#include "simulated_update/simulated_update.h"
#include "support/text_printers.h"

namespace tolvarine::updater {

using simulated::Call;
using simulated::Fault;
using simulated::FileSet;
using simulated::SimulatedUpdate;
using simulated::TypicalPlan;
using simulated::UpdatePlan;
using simulated::World;

inline constexpr std::uint64_t kAlways = ~std::uint64_t{0};  // For Fault::times.

// The entries of the typical plan, in their order. The first two are deletions; numbers 1, 2 and 4
// have no baseline.
inline constexpr std::uint64_t kTypicalEntries = 7;
inline constexpr std::uint64_t kReadme = 5;
inline constexpr std::uint64_t kApplication = 6;

// What a run answered.
struct Ran {
  TransactionResult result;
  std::string error;

  [[nodiscard]] TransactionPhase status() const { return result.status; }
};

inline Ran RunEngine(TransactionRequest request, TransactionHook hook = {}) {
  request.crash_hook = std::move(hook);
  Ran ran{.result = {}, .error = "left over from earlier"};
  ran.result = RunTransaction(request, &ran.error);
  return ran;
}

// A hook that acts at one moment of the run, every time that it comes.
inline TransactionHook At(CrashPoint point, std::uint64_t entry, std::function<void()> act) {
  return [=](CrashPoint at, std::uint64_t index) {
    if (at == point && index == entry) act();
  };
}

inline void Crash() { throw SimulatedCrash{}; }
inline void FailAsPlanned() { throw std::runtime_error("planned failure"); }

// The record on the disk.
inline TransactionJournal SavedRecord(const SimulatedUpdate& update) {
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  if (!loaded.journal) throw std::logic_error("the scene needs a journal");
  return *loaded.journal;
}

// The text of what was raised; empty if nothing was.
template <typename Act>
std::string FailureOf(Act act) {
  try {
    act();
    return {};
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

// Lets an earlier process leave its transaction in a phase, in the middle of it where it has one.
// None leaves nothing.
inline void LeaveIn(SimulatedUpdate& update, TransactionPhase phase) {
  const auto run = [&](const TransactionHook& hook) {
    EXPECT_THROW(RunEngine(update.Request(), hook), SimulatedCrash);
  };
  const TransactionHook fail_late = At(CrashPoint::ApplyEntryDone, kReadme, FailAsPlanned);
  if (phase == TransactionPhase::Backup) run(At(CrashPoint::BackupEntryDone, 3, Crash));
  if (phase == TransactionPhase::Apply) run(At(CrashPoint::ApplyEntryDone, kReadme, Crash));
  if (phase == TransactionPhase::Committed) {
    run(At(CrashPoint::ApplyFinished, kTypicalEntries, Crash));
  }
  if (phase == TransactionPhase::RolledBack) RunEngine(update.Request(), fail_late);
  if (phase == TransactionPhase::Rollback) {
    run([&](CrashPoint at, std::uint64_t index) {
      fail_late(at, index);
      if (at == CrashPoint::RollbackEntryDone && index == 3) Crash();
    });
  }
}

}  // namespace tolvarine::updater
