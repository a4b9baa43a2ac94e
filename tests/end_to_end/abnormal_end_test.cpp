#include <gtest/gtest.h>

#include "end_to_end/real_process.h"

namespace tolvarine::updater::end_to_end {
namespace {

TEST(AbnormalEnd, ARunThatThrowsEndsWithItsOwnCodeAndNoBox) {
  const std::u16string program = ProgramPath("throwing_updater.exe").u16string();
  const auto run = [&](const std::u16string& name) {
    return RealProcess(u'"' + program + u"\" " + name).Finish();
  };
  ASSERT_EQ(run(u"nothing"), Exit(0));
  EXPECT_EQ(run(u"bad_alloc"), Exit(0xC0000409));
  EXPECT_EQ(run(u"out_of_range"), Exit(0xC0000409));
  EXPECT_EQ(run(u"int"), Exit(0xC0000409));
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
