#include "engine/rollback.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

struct Obstacle {
  std::uint64_t entry;  // At which the rollback stops.
  Act act;
  const char* text;
};

TEST(RollbackTest, ObstacleStopsTheRollbackAtItsEntryUntilItIsGone) {
  const Path temporary = u"Tolvarine\\readme.txt.tolvarine-update-new";
  const Act spoil = Write(u"T\\readme.txt.tolvarine-update-new", "spoilt");
  const Obstacle rows[] = {
      {kReadme, Write(u"B\\readme.txt", "bad"),
       "Baseline backup failed verification: |B\\readme.txt|"},
      {kReadme, Before(Call::MoveFileExW, temporary, spoil),
       "Restored file failed verification: |T\\readme.txt|"},
      {kReadme, Inject(Call::CopyFileW, u"readme.txt", 1, kAlways),
       "Could not copy backup or restore temporary: Access is denied."},
      {kReadme, Inject(Call::DeleteFileW, temporary, 1, kAlways),
       "Could not remove stale backup or restore temporary: Access is denied."},
      {kReadme, Inject(Call::MoveFileExW, temporary, 1, kAlways), "Access is denied."},
      {0, Both(Remove(u"T\\lib"), Inject(Call::CreateDirectoryW, u"lib", 1, kAlways)),
       "Could not create backup or restore directory: Access is denied."},
      {4, Inject(Call::SetFileInformationByHandle, u"new.dll", 1, kAlways), "Access is denied."}};
  ForEachRow(rows, [](const Obstacle& row) {
    SimulatedUpdate update;
    const auto original = update.computer.disk.Tree(update.target);
    const Act fail = Both(row.act, [](SimulatedUpdate&) { FailAsPlanned(); });
    const Ran ran =
        RunEngine(update, At({CrashPoint::ApplyEntryDone, kReadme}, [&] { fail(update); }));
    const Ran again = RunEngine(update);
    const std::string text = Text(update, row.text);
    EXPECT_EQ(ran.error, "planned failure; rollback incomplete: " + text);
    EXPECT_EQ(again.error, text + "; rollback incomplete: " + text);
    EXPECT_EQ(again.status, Rollback);
    EXPECT_EQ(again.result.rollback, row.entry);
    update.computer.calls.before_call = nullptr;
    update.computer.calls.ClearFaults();
    Write(u"B\\readme.txt", update.plan.baseline[u"readme.txt"])(update);
    const Ran mended = RunEngine(update);
    EXPECT_EQ(mended.status, RolledBack);
    EXPECT_EQ(mended.error, "");
    EXPECT_EQ(mended.result.error, again.error);
    EXPECT_EQ(update.computer.disk.Tree(update.target), original);
  });
}

TEST(RollbackTest, EveryEntryIsRestoredWhateverTheTargetHolds) {
  const Act havoc = Both(Both(Remove(u"T\\lib"), Remove(u"T\\Tolvarine.exe")),
                         Both(Write(u"T\\readme.txt"), Write(u"T\\empty.dat", "a stranger")));
  const Act fail = [](SimulatedUpdate&) { FailAsPlanned(); };
  ExpectTrouble(
      {{Both(havoc, fail), RolledBack, kPlanned, HookPoint{CrashPoint::ApplyEntryStarted, 0}}});
}

}  // namespace
}  // namespace tolvarine::updater
