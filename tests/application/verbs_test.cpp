#include "update/verbs.h"

#include <gtest/gtest.h>

#include <functional>

#include "files/sha256.h"
#include "release/digest.h"
#include "simulated_installation/simulated_installation.h"
#include "simulated_windows/file_system.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

using simulated::FileSet;
using simulated::PackagedRelease;
using simulated::SimulatedInstallation;

const FileSet kFirst = {{u"Tolvarine.exe", "executable 1"},
                        {u"lib/changed.dll", "changed 1"},
                        {u"lib/same.dll", "same"},
                        {u"gone.txt", "gone"}};
const FileSet kSecond = {{u"Tolvarine.exe", "executable 2"},
                         {u"lib/changed.dll", "changed 2, which is longer"},
                         {u"lib/same.dll", "same"},
                         {u"new/added.dll", "added"}};
const FileSet kThird = {{u"Tolvarine.exe", "executable 3"},
                        {u"lib/changed.dll", "changed 3"},
                        {u"lib/same.dll", "same"}};

std::string ReasonsOf(const VerbResult& result) {
  std::string names;
  for (const Reason& reason : result.reasons) {
    names.append(names.empty() ? "" : " ").append(NameOf(reason.code));
  }
  return names;
}

class Verbs : public testing::Test {
 protected:
  Verbs() {
    first = fixture.Package(1, kFirst);
    second = fixture.Package(2, kSecond);
    third = fixture.Package(3, kThird);
    fixture.InstallFully(first);
    EXPECT_EQ(fixture.Adopt(first).outcome, Outcome::Done);
  }
  ~Verbs() override { EXPECT_EQ(fixture.computer.files().open_handles(), 0u); }

  // Everything on the disks but the lock file and the log.
  [[nodiscard]] std::map<std::u16string, std::string> Disks() const {
    auto tree = fixture.computer.disk.Tree(u"C:\\");
    std::erase_if(tree, [](const auto& entry) { return entry.first.ends_with(u"log.txt"); });
    return tree;
  }

  // An update that the updater leaves in a phase: the rename onto the executable is refused.
  void LeaveRestored() {
    fixture.computer.calls.Inject(
        {.call = simulated::Call::MoveFileExW,
         .first = 1,
         .times = 1,
         .code = 5,
         .path_suffix = u"\\Apps\\Tolvarine\\Tolvarine.exe.tolvarine-update-new"});
    EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
    fixture.computer.calls.ClearFaults();
  }

  void LeaveRestoring() {
    fixture.computer.calls.Inject(
        {.call = simulated::Call::MoveFileExW,
         .first = 1,
         .times = simulated::kAlways,
         .code = 5,
         .path_suffix = u"\\Apps\\Tolvarine\\Tolvarine.exe.tolvarine-update-new"});
    EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
    fixture.computer.calls.ClearFaults();
  }

  SimulatedInstallation fixture;
  PackagedRelease first;
  PackagedRelease second;
  PackagedRelease third;
};

TEST_F(Verbs, OnlyWhatDiffersIsStagedAndTheWholeReleaseStandsAfterwards) {
  const PreparedUpdate prepared = fixture.Prepare(second);
  EXPECT_EQ(prepared.result.outcome, Outcome::Done) << ReasonsOf(prepared.result);
  EXPECT_EQ(prepared.staged, 3u);
  EXPECT_EQ(prepared.deletions, 1u);
  EXPECT_EQ(prepared.unchanged, 1u);
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Prepared);
  EXPECT_EQ(fixture.Target(), kFirst);
  EXPECT_EQ(
      fixture.computer.disk.ReadFile(JoinPath(
          fixture.installation.state, u"former\\" + Utf16FromUtf8(Sha256OfBytes("changed 1")))),
      "changed 1");

  EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.exit_code, 0);
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Installed);
  EXPECT_EQ(fixture.Target(), kSecond);
  EXPECT_EQ(fixture.Finish().outcome, Outcome::Done);
  const InstallationStatus status = fixture.Status();
  EXPECT_TRUE(status.workspaces.empty());
  EXPECT_EQ(status.installed_release->sequence, 2u);
  EXPECT_EQ(status.ledger.highest_sequence, 2u);
  EXPECT_EQ(status.ledger.last.outcome, "installed");
  EXPECT_FALSE(fixture.computer.disk.Exists(JoinPath(fixture.installation.state, u"abandoned")));
}

TEST_F(Verbs, TheSequenceOnlyGrowsUnlessAPersonNamesIt) {
  EXPECT_EQ(fixture.Update(third), 0);
  const auto before = Disks();
  EXPECT_EQ(ReasonsOf(fixture.Prepare(second).result), "old-sequence");
  const PackagedRelease other = fixture.Package(3, kSecond);
  EXPECT_EQ(ReasonsOf(fixture.Prepare(other).result), "old-sequence");
  EXPECT_EQ(ReasonsOf(fixture.Prepare(third).result), "nothing-to-do");
  PrepareRequest request = fixture.RequestOf(second);
  request.accepted_sequence = 2;
  EXPECT_EQ(Prepare(fixture.installation, request, fixture.keys).result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.Abandon().outcome, Outcome::Done);
}

TEST_F(Verbs, AReleaseThatAPersonWentBackFromIsRefusedUnlessItIsNamed) {
  Ledger ledger = LoadLedger(fixture.installation).ledger;
  ledger.gone_back_from = {second.release.id};
  SaveLedger(fixture.installation, ledger);
  EXPECT_EQ(ReasonsOf(fixture.Prepare(second).result), "old-sequence");
  PrepareRequest request = fixture.RequestOf(second);
  request.accepted_sequence = 2;
  EXPECT_EQ(Prepare(fixture.installation, request, fixture.keys).result.outcome, Outcome::Done);
}

TEST_F(Verbs, AnUnfinishedUpdateLetsNoOtherBegin) {
  ASSERT_EQ(fixture.Prepare(second).result.outcome, Outcome::Done);
  LeaveRestoring();
  ASSERT_EQ(fixture.StateOf(second), WorkspaceState::Restoring);
  const auto before = Disks();
  for (const PackagedRelease* release : {&second, &third}) {
    const PreparedUpdate refused = fixture.Prepare(*release);
    EXPECT_EQ(refused.result.outcome, Outcome::UnfinishedUpdate);
    EXPECT_EQ(ReasonsOf(refused.result), "unfinished-update");
  }
  EXPECT_EQ(fixture.Abandon().outcome, Outcome::UnfinishedUpdate);
  EXPECT_EQ(fixture.Finish().outcome, Outcome::UnfinishedUpdate);
  EXPECT_EQ(Disks(), before);

  EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Restored);
  EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.exit_code, 0);
  EXPECT_EQ(fixture.Target(), kSecond);
}

TEST_F(Verbs, ALaterReleaseTakesThePlaceOfOneThatHasChangedNothing) {
  ASSERT_EQ(fixture.Prepare(second).result.outcome, Outcome::Done);
  LeaveRestored();
  ASSERT_EQ(fixture.StateOf(second), WorkspaceState::Restored);
  const PreparedUpdate prepared = fixture.Prepare(third);
  EXPECT_EQ(prepared.abandoned, std::vector{second.release.id});
  EXPECT_EQ(fixture.StateOf(third), WorkspaceState::Prepared);
  EXPECT_TRUE(fixture.computer.disk.Exists(JoinPath(fixture.installation.state, u"abandoned")));
  EXPECT_EQ(fixture.Finish().outcome, Outcome::Done);
  EXPECT_TRUE(fixture.computer.disk.Exists(JoinPath(fixture.installation.state, u"abandoned")))
      << "baseline copies stay until an update is installed";
  EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.Finish().outcome, Outcome::Done);
  EXPECT_FALSE(fixture.computer.disk.Exists(JoinPath(fixture.installation.state, u"abandoned")));
  EXPECT_EQ(fixture.Target(), kThird);
}

TEST_F(Verbs, TheLocksKeepEveryOtherVerbOut) {
  const Path lock = JoinPath(fixture.installation.state, u"lock");
  const std::u16string mutex = InstallationMutexName(fixture.installation.key);
  struct Row {
    const char* name;
    std::function<void()> take;
    std::function<void()> give_back;
  };
  platform::Handle held = platform::kInvalidHandle;
  auto& processes = fixture.computer.processes;
  const std::vector<Row> rows = {
      {"another verb, of any logon session",
       [&] { held = fixture.computer.disk.Hold(lock, platform::kGenericRead, 0); },
       [&] { fixture.computer.disk.Release(held); }},
      {"an updater of this one", [&] { processes.mutex_holders[mutex] = {}; },
       [&] { processes.mutex_holders.clear(); }},
      {"a mutex that is denied", [&] { processes.mutex_create_errors[mutex] = 5; },
       [&] { processes.mutex_create_errors.clear(); }}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto before = Disks();
    row.take();
    EXPECT_EQ(fixture.Prepare(second).result.outcome, Outcome::Locked);
    EXPECT_EQ(fixture.Start().result.outcome, Outcome::Locked);
    EXPECT_EQ(fixture.Abandon().outcome, Outcome::Locked);
    EXPECT_EQ(fixture.Finish().outcome, Outcome::Locked);
    EXPECT_EQ(fixture.Adopt(first).outcome, Outcome::Locked);
    EXPECT_EQ(fixture.Status().result.outcome, Outcome::Locked);
    row.give_back();
    EXPECT_EQ(Disks(), before);
  }
}

TEST_F(Verbs, AllReasonsAreFoundAtOnce) {
  auto& disk = fixture.computer.disk;
  const auto in_target = [&](const char16_t* name) { return JoinPath(fixture.target, name); };
  disk.SetAttributes(in_target(u"gone.txt"), 1);
  disk.Remove(in_target(u"lib\\changed.dll"));
  disk.MakeDirectory(in_target(u"lib\\changed.dll"));
  disk.WriteFile(in_target(u"new"), "a file where a directory has to be");
  const platform::Handle held =
      disk.Hold(in_target(u"Tolvarine.exe"), platform::kGenericRead, platform::kFileShareRead);
  fixture.computer.processes.by_id[fixture.computer.processes.own_id].elevated = true;
  fixture.computer.disks.volume(u'C').file_system = u"FAT32";
  const auto before = Disks();
  const PreparedUpdate refused = fixture.Prepare(second);
  EXPECT_EQ(ReasonsOf(refused.result),
            "elevated-caller unsupported-file-system wrong-kind wrong-kind file-held "
            "read-only-file");
  EXPECT_EQ(refused.result.outcome, Outcome::Refused);
  EXPECT_EQ(Disks(), before);
  disk.Release(held);
}

TEST_F(Verbs, WhatIsCopiedIsWhatIsDescribed) {
  auto& disk = fixture.computer.disk;
  disk.WriteFile(JoinPath(second.package, u"new\\added.dll"), "ADDED");
  EXPECT_EQ(ReasonsOf(fixture.Prepare(second).result), "package-mismatch");
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Remainder);
  disk.Remove(JoinPath(second.package, u"new"));
  EXPECT_EQ(ReasonsOf(fixture.Prepare(second).result), "package-mismatch");
  second = fixture.Package(2, kSecond);
  EXPECT_EQ(fixture.Prepare(second).result.outcome, Outcome::Done);

  // The program is verified before each start.
  const Path copy = UpdaterCopyPath(fixture.installation, Sha256OfBytes("the updater's program"));
  disk.WriteFile(copy, "another program.....");
  EXPECT_EQ(ReasonsOf(fixture.Start().result), "program-changed");
  EXPECT_TRUE(fixture.computer.processes.created.empty());
}

TEST_F(Verbs, StartNamesExactlyTheProcessThatIsToEnd) {
  ASSERT_EQ(fixture.Prepare(second).result.outcome, Outcome::Done);
  EXPECT_EQ(ReasonsOf(fixture.Start(1234).result), "process-gone");
  fixture.computer.processes.by_id[1234] = {.creation_time = 133485408001234567,
                                            .exits_after_ms = 100};
  EXPECT_EQ(fixture.Start(1234).result.outcome, Outcome::Done);
  const simulated::CreatedProcess& created = fixture.computer.processes.created.back();
  EXPECT_TRUE(created.command_line.ends_with(
      u"--wait-pid \"1234\" --wait-process-created-at \"133485408001234567\""));
  EXPECT_EQ(created.directory, fixture.installation.state);
  EXPECT_EQ(fixture.exit_code, 0);
}

TEST_F(Verbs, AFullPackageInstalledOverAStuckUpdateIsAdopted) {
  ASSERT_EQ(fixture.Prepare(second).result.outcome, Outcome::Done);
  LeaveRestoring();
  fixture.InstallFully(third, &kSecond);
  EXPECT_EQ(ReasonsOf(fixture.Adopt(third)), "not-the-release") << "a file of the first is left";
  fixture.computer.disk.Remove(JoinPath(fixture.target, u"gone.txt"));
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Foreign);
  EXPECT_EQ(fixture.Start().result.outcome, Outcome::UnfinishedUpdate);
  EXPECT_EQ(ReasonsOf(fixture.Adopt(second)), "not-the-release");
  EXPECT_EQ(fixture.Adopt(third).outcome, Outcome::Done);
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Remainder);
  EXPECT_EQ(fixture.Status().installed_release->sequence, 3u);
}

TEST_F(Verbs, ACancelledPreparationGoesOnWithTheNextCall) {
  for (std::uint64_t allowed = 0;; ++allowed) {
    std::uint64_t calls = 0;
    PrepareRequest request = fixture.RequestOf(second);
    request.progress = [&](const Progress&) { return calls++ < allowed; };
    const PreparedUpdate prepared = Prepare(fixture.installation, request, fixture.keys);
    if (prepared.result.outcome == Outcome::Done) {
      EXPECT_GT(allowed, 10u);
      break;
    }
    EXPECT_EQ(ReasonsOf(prepared.result), "cancelled");
    EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Remainder);
    EXPECT_EQ(fixture.Target(), kFirst);
  }
  EXPECT_EQ(fixture.StateOf(second), WorkspaceState::Prepared);
}

// A cut at every call of a preparation: the next one goes on to the same end.
TEST_F(Verbs, APreparationThatIsCutOffAnywhereIsRepeated) {
  const std::deque<simulated::Volume> disks = fixture.computer.disks.volumes;
  std::uint64_t cuts = 0;
  for (std::uint64_t call = 1;; ++call) {
    fixture.computer.Restart(disks);
    fixture.computer.calls.before_call = [&](const simulated::CallRecord& record) {
      if (record.index == call) fixture.computer.calls.CutPower();
    };
    bool cut = false;
    try {
      static_cast<void>(fixture.Prepare(second));
    } catch (const simulated::PowerCut&) {
      cut = true;
    }
    fixture.computer.calls.before_call = nullptr;
    cut = cut || fixture.computer.calls.power_is_off();
    if (!cut) break;
    ++cuts;
    for (simulated::Volume& volume : fixture.computer.disks.volumes) volume.CutPower(0, {});
    fixture.computer.Restart();
    ASSERT_EQ(fixture.Target(), kFirst) << call;
    const WorkspaceState state = fixture.StateOf(second);
    ASSERT_TRUE(state == WorkspaceState::Remainder || state == WorkspaceState::Prepared) << call;
    const PreparedUpdate again = fixture.Prepare(second);
    ASSERT_EQ(again.result.outcome, Outcome::Done) << call << ReasonsOf(again.result);
    ASSERT_EQ(fixture.StateOf(second), WorkspaceState::Prepared) << call;
    if (call % 17 == 0) {
      ASSERT_EQ(fixture.Start().result.outcome, Outcome::Done) << call;
      ASSERT_EQ(fixture.exit_code, 0) << call;
      ASSERT_EQ(fixture.Target(), kSecond) << call;
    }
  }
  EXPECT_GT(cuts, 100u);
}

}  // namespace
}  // namespace tolvarine::updater::application
