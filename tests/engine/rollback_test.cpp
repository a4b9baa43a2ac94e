#include "engine/rollback.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

struct RollbackCase {
  const char* name;
  std::uint64_t entry;  // At which the rollback stops.
  Change change;
  const char* text;
};

TEST(RollbackTest, RollbackStopsAtAFailingEntryAndContinuesThereLater) {
  const Path temporary = u"Tolvarine\\readme.txt.tolvarine-update-new";
  const Change spoil = Write(u"T\\readme.txt.tolvarine-update-new", "spoilt");
  const RollbackCase cases[] = {
      {"damaged backup", kReadme, Write(u"B\\readme.txt", "bad"),
       "Baseline backup failed verification: |B\\readme.txt|"},
      {"damaged restored file", kReadme, Before(Call::MoveFileExW, temporary, spoil),
       "Restored file failed verification: |T\\readme.txt|"},

      {"removal of a new file", 4, Inject(Call::SetFileInformationByHandle, u"new.dll", 1, kAlways),
       "Access is denied."}};
  ForEachCase(cases, [](const RollbackCase& each) {
    SimulatedUpdate update;
    const auto original = update.computer.disk.Tree(update.target);
    const Change fail = Both(each.change, [](SimulatedUpdate&) { FailAsPlanned(); });
    const EngineRun run =
        RunEngine(update, At({CrashPoint::ApplyEntryDone, kReadme}, [&] { fail(update); }));
    const EngineRun again = RunEngine(update);
    const std::string text = ResolveIn(update, each.text);
    EXPECT_EQ(run.error, "planned failure; rollback incomplete: " + text);
    EXPECT_EQ(again.error, text + "; rollback incomplete: " + text);
    EXPECT_EQ(again.status, Rollback);
    EXPECT_EQ(again.result.rollback, each.entry);
    update.computer.calls.before_call = nullptr;
    update.computer.calls.ClearFaults();
    Write(u"B\\readme.txt", update.plan.baseline[u"readme.txt"])(update);
    const EngineRun mended = RunEngine(update);
    EXPECT_EQ(mended.status, RolledBack);
    EXPECT_EQ(mended.error, "");
    EXPECT_EQ(mended.result.error, again.error);
    EXPECT_EQ(update.computer.disk.Tree(update.target), original);
  });
}

TEST(RollbackTest, EveryEntryIsRestoredWhateverTheTargetHolds) {
  const Change damage = Both(Both(Remove(u"T\\lib"), Remove(u"T\\Tolvarine.exe")),
                             Both(Write(u"T\\readme.txt"), Write(u"T\\empty.dat", "unknown")));
  const Change fail = [](SimulatedUpdate&) { FailAsPlanned(); };
  ExpectFailures({{"before the first entry", Both(damage, fail), RolledBack, kPlanned,
                   HookPoint{CrashPoint::ApplyEntryStarted, 0}}});
}

}  // namespace
}  // namespace tolvarine::updater
