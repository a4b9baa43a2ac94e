#include <gtest/gtest.h>

#include "driver/installation_lock.h"
#include "end_to_end/real_update.h"
#include "platform/windows/native.h"

namespace tolvarine::updater::end_to_end {
namespace {

constexpr char kInvalid[] = "Invalid updater arguments.";
constexpr char kUnsafe[] = "The update source, target, or state path failed safety validation. ";
constexpr char kNoLock[] = "Could not create the update transaction lock.";

std::u16string Replaced(std::u16string text, std::u16string_view from, std::u16string_view to) {
  return text.replace(text.find(from), from.size(), to);
}

TEST(Refusal, ABadCommandLineChangesNothing) {
  RealUpdate update;
  const std::u16string good = update.CommandLine();
  const std::u16string program =
      staging::QuoteArgument(ProgramPath("TolvarineUpdater.exe").u16string());
  const std::pair<const char*, std::u16string> rows[] = {
      {"no arguments", program},
      {"an option without a value", good + u" --managed-deletions"},
      {"an unknown option", good + u" --verbose yes"},
      {"a name of 32000 units", program + u" --" + std::u16string(32000, u'x') + u" y"},
      {"no option but one of 32000 units", program + u" --source " + std::u16string(32000, u'x')},
      {"a list that is not ASCII", Replaced(good, u"D1\n", u"D1\n\u00e4")},
      {"a process without its creation time", Replaced(good, u"--wait-pid \"0\"", u"--wait-pid 7")},
  };
  for (const auto& [what, line] : rows) {
    SCOPED_TRACE(what);
    EXPECT_EQ(RealProcess(line).Finish(), ErrorBox(kInvalid) + Exit(2));
    EXPECT_EQ(update.ChangesSince(), Changes());
  }
}

TEST(Refusal, ARequestOutsideTheLayoutChangesNothing) {
  const struct {
    std::string sentence;
    std::function<void(RealUpdate&)> arrange;
  } rows[] = {
      {"The release source and installation target are the same directory.",
       [](RealUpdate& u) { u.arguments.target = u.arguments.source; }},
      {"The workspace installation key does not match the requested installation key.",
       [](RealUpdate& u) { u.arguments.install_key.back() = u'0'; }},
      {"The update workspace overlaps the installation target.",
       [](RealUpdate& u) { u.arguments.target = u.layout.transaction; }},
  };
  for (const auto& [sentence, arrange] : rows) {
    SCOPED_TRACE(sentence);
    RealUpdate update;
    arrange(update);
    EXPECT_EQ(update.Run(), ErrorBox(kUnsafe + sentence) + Exit(3));
    EXPECT_EQ(update.ChangesSince(), Changes());
  }
}

TEST(Refusal, APathTooLongForAnyFileIsRefusedLikeAnyOther) {
  RealUpdate update;
  update.arguments.source = u"C:\\" + std::u16string(28000, u'x');
  const std::string ending = update.Run();
  EXPECT_NE(ending.find(kUnsafe), std::string::npos) << ending;
  EXPECT_TRUE(ending.ends_with(Exit(3))) << ending;
  EXPECT_EQ(update.ChangesSince(), Changes());
}

TEST(Refusal, ALockThatCannotBeHadIsToldAndRecorded) {
  RealUpdate update;
  const std::u16string name = InstallationMutexName(update.arguments.install_key);
  const HANDLE other = CreateEventW(nullptr, TRUE, FALSE, platform::Wide(name.c_str()));
  const auto updater = update.Start();
  EXPECT_EQ(updater->AwaitBox(), ErrorBox(kNoLock));
  EXPECT_EQ(update.Log(), LogRecord("ERROR", kNoLock));  // It is there before the box can block.
  EXPECT_EQ(updater->Finish(), ErrorBox(kNoLock) + Exit(3));
  EXPECT_EQ(update.ChangesSince(), Changes({"+ target/log.txt"}));
  CloseHandle(other);
}

TEST(Refusal, ASecondUpdaterStepsAsideWithoutAWord) {
  RealUpdate update;
  WriteBytes(update.release / "stray.txt", "not authenticated");
  const auto first = update.Start();
  ASSERT_NE(first->AwaitBox(), "");  // The first one holds the lock as long as this box is open.
  static_cast<void>(update.ChangesSince());
  const auto second = update.Start();
  EXPECT_EQ(second->Finish(), Exit(0));
  EXPECT_GE(second->Seconds(), 0.9);
  EXPECT_LT(second->Seconds(), 10);
  EXPECT_EQ(update.ChangesSince(), Changes());
  EXPECT_TRUE(first->Running());
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
