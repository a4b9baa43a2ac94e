#include <gtest/gtest.h>

#include "release/digest.h"
#include "simulated_installation/simulated_installation.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

using simulated::FileSet;
using simulated::PackagedRelease;
using simulated::SimulatedInstallation;

// 5,000 files do not fit one update's lists; the 150 that change, of which some are new and some
// gone, do.
TEST(LargeApplication, OfFiveThousandFilesAHundredAndFiftyChange) {
  constexpr int kFiles = 5000;
  constexpr int kChanged = 130;
  constexpr int kGone = 10;
  constexpr int kNew = 10;
  SimulatedInstallation fixture;
  const auto name = [](int index) {
    return u"modules/" + Utf16FromUtf8(std::to_string(index % 50)) + u"/File" +
           Utf16FromUtf8(std::to_string(index)) + u".dll";
  };
  FileSet before = {{u"Tolvarine.exe", "executable 1"}};
  for (int i = 1; i < kFiles; ++i) before[name(i)] = "content of " + std::to_string(i);
  FileSet after = before;
  for (int i = 1; i <= kGone; ++i) after.erase(name(i));
  for (int i = kGone + 1; i <= kGone + kChanged - 1; ++i) after[name(i)] += ", changed";
  for (int i = kFiles; i < kFiles + kNew; ++i) after[name(i)] = "new";
  after[u"Tolvarine.exe"] = "executable 2";

  const PackagedRelease first = fixture.Package(1, before);
  const PackagedRelease second = fixture.Package(2, after);
  fixture.InstallFully(first);
  ASSERT_EQ(fixture.Adopt(first).outcome, Outcome::Done);
  const PreparedUpdate prepared = fixture.Prepare(second);
  ASSERT_EQ(prepared.result.outcome, Outcome::Done);
  EXPECT_EQ(prepared.staged, static_cast<std::size_t>(kChanged + kNew));
  EXPECT_EQ(prepared.deletions, static_cast<std::size_t>(kGone));
  EXPECT_EQ(prepared.unchanged, static_cast<std::size_t>(kFiles - kChanged - kGone));
  ASSERT_EQ(fixture.Start().result.outcome, Outcome::Done);
  EXPECT_EQ(fixture.exit_code, 0);
  EXPECT_EQ(fixture.Target(), after);
  EXPECT_EQ(fixture.Finish().outcome, Outcome::Done);
  EXPECT_EQ(fixture.Status().installed_release->sequence, 2u);
}

}  // namespace
}  // namespace tolvarine::updater::application
