#include <gtest/gtest.h>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

TEST(Success, InstallsPublishesAndRestarts) {
  RealUpdate update;
  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
  // That the user's file and the release were left alone, and that there is no log, shows by what
  // is missing here.
  const Changes changes = {
      "+ state/installed-manifest.json",
      "+ target/Tolvarine.exe",
      "+ target/big.bin",
      "+ target/bin/core.dll",
      "+ target/data/",
      "+ target/data/deep/",
      "+ target/data/deep/er/",
      "+ target/data/deep/er/new.txt",
      "+ target/empty.dat",
      "+ target/same.txt",
      "+ target/\u00fcbersicht \u6587.txt",
      "+ workspace/completed.json",
      "- target/Tolvarine.exe",
      "- target/bin/core.dll",
      "- target/bin/old.dll",
      "- target/same.txt",
      "- workspace/archive.zip",
      "- workspace/launched.json",
      "- workspace/pending.json",
  };
  EXPECT_EQ(update.ChangesSince(), changes);
  EXPECT_EQ(ReadBytes(update.layout.installed_manifest), "{pending}");
  EXPECT_EQ(ReadBytes(update.layout.completed_marker), "{pending}");
}

TEST(Success, InstallsWhereNothingWasInstalled) {
  RealUpdate update;
  fs::remove_all(update.target);
  update.contents.installed.clear();
  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
}

TEST(Success, AProgramOutsideTheInstallationIsRestartedInTheInstallation) {
  RealUpdate update;
  const fs::path launcher = update.root / "launcher" / "Start.exe";
  fs::create_directory(launcher.parent_path());
  WriteBytes(launcher, Application("launcher"));
  update.arguments.restart = launcher.u16string();
  EXPECT_EQ(update.Run(), Exit(0));
  EXPECT_EQ(update.Started(launcher.parent_path()),
            Utf8(update.arguments.target + u"\n" + launcher.u16string() + u"\nlauncher"));
  EXPECT_EQ(update.Target(), update.Installed());
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
