// The verbs of the update tool, with the real updater. Each installation is left whole, of one
// release, whatever is tried with it.

#include <gtest/gtest.h>

#include "end_to_end/tool_run.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;
using inspection::FileTree;
using inspection::ReadFile;
using inspection::ReadTree;

FileTree First() {
  return {{"Tolvarine.exe", Application("1")},
          {"bin/core.dll", "core 1"},
          {"bin/old.dll", "old"},
          {"same.txt", "the same"}};
}

FileTree Second() {
  return {{"Tolvarine.exe", Application("2")},
          {"bin/core.dll", "core 2"},
          {"data/new.dat", "new"},
          {"same.txt", "the same"}};
}

FileTree Third() {
  return {{"Tolvarine.exe", Application("3")}, {"bin/core.dll", "core 3"}, {"same.txt", "same 3"}};
}

// Leaves an update in Rollback, by a file that cannot be replaced.
void LeaveRestoring(const ToolInstallation& at, const Package& package) {
  ASSERT_EQ(at.Prepare(package).code, 0u);
  const FileHandle held = OpenWithoutDeleteSharing(at.target / "bin/core.dll");
  const std::string outcome = at.RunUpdater();
  EXPECT_NE(outcome.find("rollback is incomplete"), std::string::npos) << outcome;
  ASSERT_EQ(at.State(), "restoring");
}

TEST(Tool, OnlyWhatDiffersIsInstalledOnceTheApplicationHasEnded) {
  ToolInstallation at(First());
  const Package second = at.MakePackage(2, Second());
  RunningApplication application(at.target / "Tolvarine.exe");
  const ToolAnswer prepared = at.Prepare(second);
  EXPECT_EQ(prepared.code, 0u) << prepared.output;
  EXPECT_EQ(prepared.json.at("staged_files"), 3);
  EXPECT_EQ(prepared.json.at("deletions"), 1);
  EXPECT_EQ(prepared.json.at("unchanged_files"), 1);
  EXPECT_EQ(prepared.errors, "");  // No line of progress where there is no console.
  const std::unique_ptr<RealProcess> updater = at.Start(application);
  // With any other creation time than the exact one, the updater would not wait.
  EXPECT_FALSE(Eventually([&] { return !updater->Running(); }, 1));
  EXPECT_EQ(at.Run(u"status").code, 4u);  // Its lock is taken.
  application.End();
  EXPECT_EQ(updater->Finish(), Exit(0));
  at.ExpectInstalled(second);
  EXPECT_EQ(at.State(), "installed");
  EXPECT_EQ(at.Run(u"finish").code, 0u);
  const ToolAnswer status = at.Run(u"status");
  EXPECT_TRUE(status.json.at("updates").empty()) << status.output;
  EXPECT_EQ(status.json.at("installed").at("sequence"), 2);
  EXPECT_EQ(status.json.at("last_result").at("outcome"), "installed");
  EXPECT_EQ(at.Prepare(second).Reasons(), "nothing-to-do");
}

TEST(Tool, NoOtherUpdateBeginsWhileOneIsUnfinished) {
  ToolInstallation at(First());
  const Package second = at.MakePackage(2, Second());
  const Package third = at.MakePackage(3, Third());
  LeaveRestoring(at, second);
  const FileTree before = ReadTree(at.root);
  for (const ToolAnswer& refused : {at.Prepare(third), at.Prepare(third, {}, u"check"),
                                    at.Run(u"abandon"), at.Run(u"finish")}) {
    EXPECT_EQ(refused.code, 3u) << refused.output;
    EXPECT_EQ(refused.Reasons(), "unfinished-update");
  }
  EXPECT_EQ(inspection::Deviations(ReadTree(at.root), before, before, {}), "");

  const std::string restored = at.RunUpdater();
  EXPECT_NE(restored.find("The original installation was restored."), std::string::npos);
  EXPECT_EQ(at.State(), "restored");
  EXPECT_EQ(at.RunUpdater(), Exit(0));
  at.ExpectInstalled(second);
}

TEST(Tool, AFullPackageOverAStuckUpdateIsAdopted) {
  ToolInstallation at(First());
  const Package second = at.MakePackage(2, Second());
  const Package third = at.MakePackage(3, Third());
  LeaveRestoring(at, second);
  fs::remove(at.target / "bin/old.dll");
  fs::remove_all(at.target / "data");
  WriteTree(at.target, third.files);
  EXPECT_EQ(at.State(), "foreign");
  EXPECT_EQ(at.Run(u"start", {u"--no-wait"}).code, 3u);
  EXPECT_EQ(at.Adopt(second).Reasons(), "not-the-release");
  EXPECT_EQ(at.State(), "foreign");
  EXPECT_EQ(at.Adopt(third).code, 0u);
  const ToolAnswer status = at.Run(u"status");
  EXPECT_TRUE(status.json.at("updates").empty()) << status.output;
  EXPECT_EQ(status.json.at("installed").at("sequence"), 3);
  EXPECT_EQ(at.Prepare(second).Reasons(), "old-sequence");
}

TEST(Tool, AnUpdaterThatIsPartOfTheReleaseIsReplaced) {
  FileTree first = First();
  FileTree second = Second();
  first["TolvarineUpdater.exe"] = ReadFile(ProgramPath("TolvarineUpdater.exe"));
  second["TolvarineUpdater.exe"] = first["TolvarineUpdater.exe"] + "changed";
  ToolInstallation at(first);
  const Package package = at.MakePackage(2, second);
  const fs::path updater = at.target / "TolvarineUpdater.exe";
  ASSERT_EQ(at.Prepare(package, {u"--updater", updater.u16string()}).code, 0u);
  EXPECT_EQ(at.RunUpdater(), Exit(0));
  at.ExpectInstalled(package);
}

TEST(Tool, AReleaseIsInstalledAgain) {
  ToolInstallation at(First());
  const Package second = at.MakePackage(2, Second());
  ASSERT_EQ(at.Prepare(second).code, 0u);
  ASSERT_EQ(at.RunUpdater(), Exit(0));
  at.ExpectInstalled(second);
  // Its workspace is still there when the same update is prepared once more.
  fs::remove(at.target / "same.txt");
  const ToolAnswer prepared = at.Prepare(second);
  ASSERT_EQ(prepared.code, 0u) << prepared.output;
  EXPECT_EQ(prepared.json.at("staged_files"), 2);
  EXPECT_EQ(at.State(), "prepared");
  EXPECT_EQ(at.RunUpdater(), Exit(0));
  at.ExpectInstalled(second);
  EXPECT_EQ(at.State(), "installed");  // And not both markers.
}

TEST(Tool, WhatTheUpdaterWouldFailAtIsRefusedBefore) {
  ToolInstallation at(First());
  const Package second = at.MakePackage(2, Second());
  const fs::path core = at.target / "bin/core.dll";
  const struct {
    const char* reason;
    std::function<void()> arrange;
    std::function<void()> undo;
    Arguments options;
    Rights rights = Rights::User;
  } rows[] = {
      {"read-only-file",
       [&] { SetFileAttributesW(core.c_str(), FILE_ATTRIBUTE_READONLY); },
       {},
       {}},
      {"elevated-caller", {}, {}, {u"--clear-read-only"}, Rights::Administrator},
      {"package-mismatch",
       [&] { WriteBytes(second.directory / "data/new.dat", "NEW"); },
       [&] { WriteBytes(second.directory / "data/new.dat", "new"); },
       {u"--clear-read-only"}},
      {"bad-release",
       [&] {
         std::string bytes = ReadFile(second.release);
         bytes[bytes.find("\"payload\"") + 40] ^= 1;
         WriteBytes(at.root / "changed.json", bytes);
       },
       {},
       {u"--clear-read-only"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.reason);
    if (row.arrange) row.arrange();
    Package package = second;
    if (fs::exists(at.root / "changed.json")) package.release = at.root / "changed.json";
    const ToolAnswer refused = at.Prepare(package, row.options, u"prepare", row.rights);
    EXPECT_EQ(refused.code, 1u);
    EXPECT_EQ(refused.Reasons(), row.reason) << refused.output;
    if (row.undo) row.undo();
  }
  FileHandle held = OpenWithoutDeleteSharing(core);
  EXPECT_EQ(at.Prepare(second, {u"--clear-read-only"}, u"check").Reasons(), "file-held");
  held.Reset();
  EXPECT_EQ(at.Prepare(second, {u"--clear-read-only"}).code, 0u);
  const ToolAnswer elevated = at.Run(u"start", {u"--no-wait"}, Rights::Administrator);
  EXPECT_EQ(elevated.Reasons(), "elevated-caller");
  EXPECT_NE(elevated.output.find("start the application without these rights."), std::string::npos);
  EXPECT_EQ(at.Run(u"start", {u"--wait", u"4294967292"}).Reasons(), "process-gone");
  EXPECT_EQ(at.RunUpdater(), Exit(0));
  at.ExpectInstalled(second);
}

TEST(Tool, AReleaseThatCannotBeInstalledIsNotDescribed) {
  ToolInstallation at(First());
  FileTree files = Second();
  files["log.txt"] = "written by the updater";
  files["bin/core.dll.tolvarine-update-new"] = "removed by the updater";
  const ToolAnswer refused = at.Describe(2, files);
  EXPECT_EQ(refused.code, 1u);
  EXPECT_EQ(refused.Reasons(), "bad-release bad-release") << refused.output;
}

TEST(Tool, WhatItSaysIsTextWithoutJson) {
  const ToolAnswer usage = RunTool({u"prepare", u"--target"});
  EXPECT_EQ(usage.code, 2u);
  EXPECT_EQ(usage.output, "");
  EXPECT_NE(usage.errors, "");
  const ToolAnswer missing = RunTool({u"status", u"--target", u"C:\\a", u"--state", u"C:\\s",
                                      u"--key", u"Schl\u00fcssel \u6587.pem"});
  EXPECT_EQ(missing.code, 1u);
  EXPECT_TRUE(missing.errors.starts_with("\"Schl\u00fcssel \u6587.pem\" cannot be read: "))
      << missing.errors;
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
