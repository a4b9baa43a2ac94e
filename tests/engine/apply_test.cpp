#include "engine/apply.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

HookPoint AtEntry(std::uint64_t entry) { return {CrashPoint::ApplyEntryStarted, entry}; }

// Invariants 1 and 4.
TEST(ApplyTest, ObstacleAtAnEntryRollsTheInstallationBack) {
  constexpr char kUnverified[] = "Release file failed authenticated verification: |S\\readme.txt|";
  constexpr char kTwice[] = "Access is denied.; rollback incomplete: Access is denied.";
  const Path release = u"S\\readme.txt";
  const Act short_write = [](SimulatedUpdate& update) {
    update.computer.calls.Inject(
        {.call = Call::WriteFile, .path_suffix = u"update-new", .partial = 100});
  };
  ExpectTrouble({
      {Write(release, std::string(1800, 'x')), RolledBack, kUnverified, AtEntry(kReadme)},
      {Both(Write(release, "short"), Inject(Call::ReadFile, u"release\\readme.txt")), RolledBack,
       kUnverified, AtEntry(kReadme)},  // It is not read.
      {Remove(release), RolledBack,
       "Could not lock release source: The system cannot find the file specified.",
       AtEntry(kReadme)},
      {Link(release, u"Tolvarine.exe"), RolledBack,
       "Release source is not a regular non-reparse file: |S\\readme.txt|", AtEntry(kReadme)},
      {short_write, RolledBack,
       "Could not copy locked release source: The system cannot write to the specified device.",
       AtEntry(kReadme)},
      {Inject(Call::CreateDirectoryW, u"plug"), RolledBack,
       "create_directories: Access is denied.: \"|T\\plug\\ins|\"", AtEntry(4)},
      {Hold(u"T\\lib\\old.dll"), Rollback,
       "The process cannot access the file because it is being used by another process.; rollback "
       "incomplete: Access is denied.",
       AtEntry(0)},
      {Junction(u"T\\plug", u"C:\\State"), Rollback,
       "update target path escapes its root; rollback incomplete: update target path escapes its "
       "root",
       AtEntry(4)},
      {ReadOnly(u"T\\lib\\core.dll"), Rollback, kTwice, AtEntry(3)},
  });
}

// Invariant 4: what was verified is what is copied, since nobody can get at it in between.
TEST(ApplyTest, VerifiedReleaseFileIsHeldUntilItIsInstalled) {
  const Act expect_held = [](SimulatedUpdate& u) {
    EXPECT_EQ(u.computer.disk.Hold(u.SourcePath(u"readme.txt"), platform::kGenericWrite, 7),
              platform::kInvalidHandle);
  };
  SimulatedUpdate update;
  Before(Call::MoveFileExW, u"Tolvarine\\readme.txt.tolvarine-update-new", expect_held)(update);
  const HookPoint verified = {CrashPoint::ApplySourceVerified, kReadme};
  EXPECT_EQ(RunEngine(update, At(verified, [&] { expect_held(update); })).status, Committed);
}

}  // namespace
}  // namespace tolvarine::updater
