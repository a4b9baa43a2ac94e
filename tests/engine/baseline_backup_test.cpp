#include "engine/baseline_backup.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

constexpr HookPoint kAtReadme{CrashPoint::BackupEntryStarted, kReadme};

TEST(BaselineBackupTest, TargetThatDiffersFromThePlanStopsTheBackup) {
  constexpr char kChanged[] = "Original file failed verification: |T\\readme.txt|";
  const Path temporary = u"backup\\readme.txt.tolvarine-update-new";
  const Change spoil_copy = Write(u"B\\readme.txt.tolvarine-update-new", "spoilt");
  ExpectFailures(
      {{"other bytes", Write(u"T\\readme.txt", std::string(1800, 'x')), Backup, kChanged,
        kAtReadme},
       {"missing", Remove(u"T\\readme.txt"), Backup, kChanged, kAtReadme},
       {"damaged copy", Before(Call::MoveFileExW, temporary, spoil_copy), Backup,
        "Baseline backup failed verification: |B\\readme.txt|", kAtReadme},
       // The copy has the attribute too and cannot be opened for the flush.
       {"read-only", ReadOnly(u"T\\readme.txt"), Backup, "Access is denied.", kAtReadme}});
}

TEST(BaselineBackupTest, BackupContinuesWhenTheFileIsAsItWas) {
  SimulatedUpdate update;
  RunEngine(update, At(kAtReadme, [&] { Write(u"T\\readme.txt", "changed")(update); }));
  EXPECT_EQ(RunEngine(update).result.backup, kReadme);
  Both(Write(u"T\\readme.txt", update.plan.baseline[u"readme.txt"]),
       Write(u"B\\readme.txt.tolvarine-update-new", "stale"))(update);
  EXPECT_EQ(RunEngine(update).status, Committed);
  std::map<std::u16string, std::string> expected = {{u"lib\\", ""}};
  for (const auto& [path, content] : update.plan.baseline) {
    if (path != u"user/settings.ini") expected[LexicallyNormal(path)] = content;
  }
  EXPECT_EQ(update.computer.disk.Tree(Resolve(update, u"B")), expected);
}

// Invariant 2: every copy is verified, also that of an entry that is applied.
TEST(BaselineBackupTest, EveryCopyIsVerifiedBeforeTheTargetIsTouched) {
  const std::string text = "Baseline backup failed verification: |B\\lib\\old.dll|";
  ExpectFailures(
      {{"copy of an applied entry is missing", Both(LeftIn(Apply), Remove(u"B\\lib\\old.dll")),
        Rollback, text + "; rollback incomplete: " + text}});
}

}  // namespace
}  // namespace tolvarine::updater
