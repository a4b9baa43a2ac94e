#include "engine/apply.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

Moment AtEntry(std::uint64_t entry) { return {CrashPoint::ApplyEntryStarted, entry}; }

// Invariants 1 and 4.
TEST(ApplyTest, ObstacleAtAnEntryRollsTheInstallationBack) {
  constexpr char kUnverified[] = "Release file failed authenticated verification: |S\\readme.txt|";
  constexpr char kTwice[] = "Access is denied.; rollback incomplete: Access is denied.";
  const Path release = u"S\\readme.txt";
  const Act short_write = [](SimulatedUpdate& update) {
    update.world.Plan({.call = Call::WriteFile, .path_suffix = u"update-new", .partial = 100});
  };
  ExpectTrouble({
      {Write(release, std::string(1800, 'x')), RolledBack, kUnverified, AtEntry(kReadme)},
      {Both(Write(release, "short"), Fail(Call::ReadFile, u"release\\readme.txt")), RolledBack,
       kUnverified, AtEntry(kReadme)},  // It is not read.
      {Remove(release), RolledBack,
       "Could not lock release source: The system cannot find the file specified.",
       AtEntry(kReadme)},
      {Link(release, u"Tolvarine.exe"), RolledBack,
       "Release source is not a regular non-reparse file: |S\\readme.txt|", AtEntry(kReadme)},
      {short_write, RolledBack,
       "Could not copy locked release source: The system cannot write to the specified device.",
       AtEntry(kReadme)},
      {Fail(Call::CreateDirectoryW, u"plug"), RolledBack,
       "create_directories: Access is denied.: \"|T\\plug\\ins|\"", AtEntry(4)},
      {Hold(u"T\\lib\\old.dll"), Rollback,
       "The process cannot access the file because it is being used by another process.; rollback "
       "incomplete: Access is denied.",
       AtEntry(0)},
      {Junction(u"T\\plug", u"C:\\State"), Rollback,
       "update target path escapes its root; rollback incomplete: update target path escapes its "
       "root",
       AtEntry(4)},
      {Hold(u"T\\Tolvarine.exe"), Rollback, kTwice, AtEntry(kApplication)},
      {ReadOnly(u"T\\lib\\core.dll"), Rollback, kTwice, AtEntry(3)},
  });
}

// Invariant 4: what was verified is what is copied, since nobody can get at it in between.
TEST(ApplyTest, VerifiedReleaseFileIsHeldUntilItIsInstalled) {
  SimulatedUpdate update;
  bool verified = false;
  int calls = 0;
  const auto expect_held = [&] {
    const auto writer = update.world.Hold(update.SourcePath(u"readme.txt"), platform::kGenericWrite,
                                          platform::kFileShareAll);
    EXPECT_EQ(writer, platform::kInvalidHandle) << "before call " << calls;
    verified = true;
    ++calls;
  };
  update.world.before_call = [&](const CallRecord& call) {
    if (!verified) return;
    EXPECT_FALSE(call.path.ends_with(u"release\\readme.txt") && call.call == Call::CreateFileW);
    if (call.path.ends_with(u"Tolvarine\\readme.txt.tolvarine-update-new")) expect_held();
    verified = call.call != Call::MoveFileExW;
  };
  RunEngine(update, At({CrashPoint::ApplySourceVerified, kReadme}, expect_held));
  EXPECT_FALSE(verified);
  EXPECT_GE(calls, 5) << "creation, write, flush and rename";
}

TEST(ApplyTest, StaleTemporaryIsReplaced) {
  SimulatedUpdate update;
  const Path temporary = u"T\\plug\\ins\\new.dll.tolvarine-update-new";
  Both(Write(temporary, "stale"), ReadOnly(temporary))(update);
  EXPECT_EQ(RunEngine(update).status, Committed);
  EXPECT_EQ(update.Target(), update.Installed());
}

}  // namespace
}  // namespace tolvarine::updater
