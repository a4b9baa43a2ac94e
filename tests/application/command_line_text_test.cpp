#include "update/command_line_text.h"

#include <gtest/gtest.h>

#include "platform/shell.h"
#include "simulated_windows/computer.h"
#include "support/shown_text.h"

namespace tolvarine::updater::application {
namespace {

TEST(CommandLineText, QuotedArgumentsAreParsedUnchanged) {
  simulated::Computer computer;
  computer.MakeCurrent();
  for (const Path argument : {u"", u"a b", u"\t\n", u"\"", u"a\\", u"\\\\a\\ b\\\\", u"\\\"",
                              u"\\\\\" \"\\", u"\u00E9\xD83D\"\""}) {
    const Path line = u"program " + QuoteArgument(argument) + u" " + QuoteArgument(u"end");
    std::int32_t count = 0;
    char16_t** const arguments = platform::CommandLineToArgvW(line.c_str(), &count);
    ASSERT_EQ(count, 3) << Shown(line);
    EXPECT_EQ(Path(arguments[1]), argument) << Shown(line);
    platform::LocalFree(arguments);
  }
}

}  // namespace
}  // namespace tolvarine::updater::application
