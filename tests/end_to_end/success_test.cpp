#include <gtest/gtest.h>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

TEST(Success, InstallsPublishesAndRestarts) {
  RealUpdate update;
  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
  // Whatever is not listed is unchanged: the user's file and the release; and there is no log.
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
  EXPECT_EQ(inspection::ReadFile(update.layout.installed_manifest), "{pending}");
  EXPECT_EQ(inspection::ReadFile(update.layout.completed_marker), "{pending}");
}

TEST(Success, AProgramOutsideTheInstallationIsRestartedInTheInstallation) {
  RealUpdate update;
  const std::filesystem::path launcher = update.RestartAnotherProgram();
  EXPECT_EQ(update.Run(), Exit(0));
  EXPECT_EQ(update.Restarted(launcher), Restart("launcher", update.target, launcher));
  update.ExpectTarget({inspection::Version::New});
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
