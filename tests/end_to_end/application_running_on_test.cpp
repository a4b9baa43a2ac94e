// The wait for an application that never ends takes a minute. It begins with the whole run and
// passes beside the other tests. This file's name comes first, and MinGW registers the tests of the
// first source last; in any other order the test passes as well, and the run takes longer.

#include <gtest/gtest.h>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

struct Scene {
  RealUpdate update{};
  RunningApplication application{update.application};
  std::unique_ptr<RealProcess> updater = (update.WaitFor(application.process()), update.Start());
};

std::unique_ptr<Scene> scene;

bool IsToRun(std::string_view suite) {
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int i = 0; i < all.total_test_suite_count(); ++i) {
    if (all.GetTestSuite(i)->name() == suite) return all.GetTestSuite(i)->should_run();
  }
  return false;
}

class LongWaitEnvironment : public testing::Environment {
 public:
  void SetUp() override {
    if (IsToRun("LongWait")) scene = std::make_unique<Scene>();
  }
  void TearDown() override { scene.reset(); }
};

[[maybe_unused]] const auto* const environment =
    testing::AddGlobalTestEnvironment(new LongWaitEnvironment);  // GoogleTest owns it.

TEST(LongWait, AnApplicationThatRunsOnStopsTheUpdateAfterAMinute) {
  const std::string message =
      "The running application did not exit in time. No files were changed.";
  ASSERT_NE(scene, nullptr);
  auto& [update, application, updater] = *scene;
  EXPECT_EQ(updater->AwaitBox(), ErrorBox(message));
  EXPECT_GE(updater->Seconds(), 60);
  EXPECT_EQ(update.Log(), LogRecord("ERROR", message));  // It is there before the box is dismissed.
  EXPECT_EQ(updater->Finish(), ErrorBox(message) + Exit(4));
  EXPECT_EQ(update.ChangesSince(), Changes({"+ target/log.txt"}));
  EXPECT_TRUE(application.process().Running());
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
