#include <gtest/gtest.h>

#include <stdexcept>

#include "driver/installation_lock.h"
#include "end_to_end/real_update.h"
#include "platform/windows/native.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLastEntry = 7;  // The usual update has one deletion and seven files.

struct Moment {
  CrashPoint point;
  std::uint64_t entry;
  auto operator<=>(const Moment&) const = default;
};

constexpr Moment kNever = {CrashPoint::RollbackEntryDone, kLastEntry + 1};

TransactionHook CrashAt(Moment crash) {
  return [=](CrashPoint point, std::uint64_t entry) {
    if (Moment{point, entry} == crash) throw SimulatedCrash();
  };
}

// Fails after all work is done and before the last of it is counted, so that all of it is undone.
TransactionHook FailThenCrashAt(Moment crash) {
  return [=](CrashPoint point, std::uint64_t entry) {
    if (Moment{point, entry} == Moment{CrashPoint::ApplyEntryDone, kLastEntry}) {
      throw std::runtime_error("a failure");
    }
    CrashAt(crash)(point, entry);
  };
}

void ExpectInstalledByTheNextRun(const RealUpdate& update) {
  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
  EXPECT_FALSE(fs::exists(update.layout.transaction));
}

TEST(Recovery, WhatWasOnItsWayIsCarriedForward) {
  const struct {
    const char* what;
    TransactionPhase phase;
    TransactionHook hook;
  } rows[] = {
      {"a copy announced", TransactionPhase::Backup, CrashAt({CrashPoint::BackupEntryStarted, 2})},
      {"the last copy made", TransactionPhase::Backup,
       CrashAt({CrashPoint::BackupEntryDone, kLastEntry})},
      {"the first change announced", TransactionPhase::Apply,
       CrashAt({CrashPoint::ApplyEntryStarted, 0})},
      {"a release file verified", TransactionPhase::Apply,
       CrashAt({CrashPoint::ApplySourceVerified, 3})},
      {"the last change made", TransactionPhase::Apply,
       CrashAt({CrashPoint::ApplyEntryDone, kLastEntry})},
      {"all of it durable", TransactionPhase::Committed,
       CrashAt({CrashPoint::ApplyFinished, kLastEntry + 1})},
      {"rolled back", TransactionPhase::RolledBack, FailThenCrashAt(kNever)},
  };
  for (const auto& [what, phase, hook] : rows) {
    SCOPED_TRACE(what);
    RealUpdate update;
    update.RunEngine(hook);
    ASSERT_EQ(update.SavedPhase(), phase);
    ExpectInstalledByTheNextRun(update);
  }
}

TEST(Recovery, ARollbackOnItsWayIsFinishedAndTheRunAfterItInstalls) {
  for (const Moment crash :
       {Moment{CrashPoint::RollbackEntryStarted, 0}, Moment{CrashPoint::RollbackEntryDone, 4},
        Moment{CrashPoint::RollbackEntryDone, kLastEntry}}) {
    SCOPED_TRACE(crash.entry);
    RealUpdate update;
    update.RunEngine(FailThenCrashAt(crash));
    ASSERT_EQ(update.SavedPhase(), TransactionPhase::Rollback);
    EXPECT_EQ(update.Run(),
              ErrorBox("The update failed. The original installation was restored.") + Exit(5));
    EXPECT_EQ(update.Target(), update.Baseline());
    ExpectInstalledByTheNextRun(update);
  }
}

TEST(Recovery, OneSoundSlotOfTheJournalIsEnough) {
  for (const char* slot : {"journal.0", "journal.1"}) {
    SCOPED_TRACE(slot);
    RealUpdate update;
    update.RunEngine(CrashAt({CrashPoint::ApplyEntryStarted, 4}));
    WriteBytes(update.layout.transaction / fs::path(slot), "cut short");
    ASSERT_EQ(update.SavedPhase(), TransactionPhase::Apply);
    ExpectInstalledByTheNextRun(update);
  }
}

// An update with so many files that there is time to kill the updater among them.
UpdateContents ManyFiles() {
  UpdateContents contents = UsualContents();
  for (int i = 100; i < 115; ++i) {
    const std::string name = std::to_string(i) + ".dat";
    contents.installed["old/" + name] = "one";
    contents.release["old/" + name] = "two";
    contents.release["zoo/" + name] = "new";
  }
  return contents;
}

TEST(Recovery, AnUpdaterThatIsKilledLeavesWhatTheNextOneCanInstall) {
  // What is looked at is never opened: that alone could make the updater fail.
  const std::pair<const char*, std::function<fs::path(const RealUpdate&)>> rows[] = {
      {"planned", [](const RealUpdate& u) { return u.layout.transaction + u"\\journal.1"; }},
      {"copying", [](const RealUpdate& u) { return u.layout.transaction + u"\\backup\\old"; }},
      {"applying", [](const RealUpdate& u) { return u.target / "empty.dat"; }},
      {"further on", [](const RealUpdate& u) { return u.target / "zoo" / "102.dat"; }},
  };
  for (const auto& [what, sign] : rows) {
    SCOPED_TRACE(what);
    RealUpdate update(ManyFiles());
    // The lock outlives its owner, and the next updater is to take it over.
    const HANDLE lock =
        CreateMutexW(nullptr, FALSE,
                     platform::Wide(InstallationMutexName(update.arguments.install_key).c_str()));
    const auto updater = update.Start();
    ASSERT_TRUE(Eventually([&] { return fs::exists(sign(update)); }));
    updater->Kill();
    EXPECT_EQ(updater->Finish(), Exit(99)) << "it was done before it was killed";
    ExpectInstalledByTheNextRun(update);
    CloseHandle(lock);
  }
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
