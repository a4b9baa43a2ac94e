#include "engine/apply.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

HookPoint AtEntry(std::uint64_t entry) { return {CrashPoint::ApplyEntryStarted, entry}; }

// Invariants 1 and 4.
TEST(ApplyTest, FailureAtAnEntryRollsTheInstallationBack) {
  constexpr char kUnverified[] = "Release file failed authenticated verification: |S\\readme.txt|";
  const Path release = u"S\\readme.txt";
  const Change short_write = [](SimulatedUpdate& update) {
    update.computer.calls.Inject(
        {.call = Call::WriteFile, .path_suffix = u"update-new", .partial = 100});
  };
  ExpectFailures({
      {"other bytes", Write(release, std::string(1800, 'x')), RolledBack, kUnverified,
       AtEntry(kReadme)},

      {"short write", short_write, RolledBack,
       "Could not copy locked release source: The system cannot write to the specified device.",
       AtEntry(kReadme)},

      {"file to delete is open elsewhere", Hold(u"T\\lib\\old.dll"), Rollback,
       "The process cannot access the file because it is being used by another process.; rollback "
       "incomplete: Access is denied.",
       AtEntry(0)},
      {"junction out of the target", Junction(u"T\\plug", u"C:\\State"), Rollback,
       "update target path escapes its root; rollback incomplete: update target path escapes its "
       "root",
       AtEntry(4)},
  });
}

// Invariant 4: nobody can change the file between its verification and its copy.
TEST(ApplyTest, VerifiedReleaseFileIsLockedUntilItIsInstalled) {
  const Change expect_locked = [](SimulatedUpdate& u) {
    EXPECT_EQ(u.computer.disk.Hold(u.SourcePath(u"readme.txt"), platform::kGenericWrite, 7),
              platform::kInvalidHandle);
  };
  SimulatedUpdate update;
  Before(Call::MoveFileExW, u"Tolvarine\\readme.txt.tolvarine-update-new", expect_locked)(update);
  const HookPoint verified = {CrashPoint::ApplySourceVerified, kReadme};
  EXPECT_EQ(RunEngine(update, At(verified, [&] { expect_locked(update); })).status, Committed);
}

}  // namespace
}  // namespace tolvarine::updater
