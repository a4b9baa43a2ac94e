#include <gtest/gtest.h>

#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

TEST(Refusal, ARefusedRequestShowsABoxAndChangesNothing) {
  const std::string arguments = ErrorBox("Invalid updater arguments.");
  const std::string unsafe =
      BoxStart("The update source, target, or state path failed safety validation. ");
  const struct {
    const char* what;
    std::function<void(RealUpdate&)> arrange;
    std::u16string appended;  // To the command line.
    std::string box;          // Its beginning.
    std::uint32_t code;
  } rows[] = {
      {"an option without a value", {}, u" --managed-deletions", arguments, 2},
      {"an option of 24000 units", {}, u" --" + std::u16string(24000, u'x') + u" y", arguments, 2},
      {"release and target are one directory",
       [](RealUpdate& u) { u.arguments.target = u.arguments.source; }, u"", unsafe, 3},
      {"a path that is too long for any file",
       [](RealUpdate& u) { u.arguments.source = u"C:\\" + std::u16string(28000, u'x'); }, u"",
       unsafe, 3},
  };
  for (const auto& [what, arrange, appended, box, code] : rows) {
    SCOPED_TRACE(what);
    RealUpdate update;
    if (arrange) arrange(update);
    const std::string outcome = RealProcess(update.CommandLine() + appended).Finish();
    EXPECT_TRUE(outcome.starts_with(box) && outcome.ends_with(Exit(code))) << outcome;
    EXPECT_EQ(update.ChangesSince(), Changes());
  }
}

TEST(Refusal, ASecondUpdaterOfTheInstallationEndsSilently) {
  RealUpdate update;
  WriteBytes(update.release / "stray.txt", "not authenticated");
  const auto first = update.Start();
  ASSERT_NE(first->AwaitBox(), "");  // The first one holds the lock as long as this box is open.
  static_cast<void>(update.ChangesSince());
  const auto second = update.Start();
  EXPECT_EQ(second->Finish(), Exit(0));
  EXPECT_GE(second->Seconds(), 0.9);
  EXPECT_EQ(update.ChangesSince(), Changes());
  EXPECT_TRUE(first->Running());
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
