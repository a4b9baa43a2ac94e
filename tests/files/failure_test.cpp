#include "files/failure.h"

#include "files/file_machine.h"

namespace tolvarine::updater {
namespace {

class Failures : public FileMachine {
 protected:
  static std::string Narrowed(PathView path) {
    std::string text;
    const std::string raised = Raised([&] { text = NarrowPathText(path); });
    return raised == "done" ? text : raised;
  }
  static std::string Status(PathView path) {
    return Raised([&] { throw FilesystemError("status", 5, path); });
  }
};

TEST_F(Failures, PathsAreNarrowedExactlyInTheCodePageOfTheFileCalls) {
  EXPECT_EQ(Narrowed(u"C:\\\u00e9\u20ac"), "C:\\\xe9\x80");
  EXPECT_EQ(Narrowed(u"\u0141"), "system 1113: *");
  EXPECT_EQ(Narrowed(u""), "");
  Fail(Call::WideCharToMultiByte, 8, {}, 2);
  EXPECT_EQ(Narrowed(u"a"), "system 8: *");
  world.file_apis_ansi = false;
  EXPECT_EQ(Narrowed(u"\u00e9"), "\x82");  // Code page 437.
  world.runtime_code_page = 65001;
  EXPECT_EQ(Narrowed(u"\u00e9\u0141"), "\xc3\xa9\xc5\x81");
  EXPECT_EQ(Narrowed(u"a\xd800"), "system 1113: *");
}

TEST_F(Failures, AFilesystemErrorAlwaysHasItsPathAndTheRightCode) {
  EXPECT_EQ(Status(u"C:\\\u00e9\u0141"), "filesystem 5: status: *: \"C:\\\xe9?\"");
  EXPECT_EQ(Status(u""), "filesystem 5: status: *: \"\"");
  for (std::uint32_t* page : {&world.ansi_code_page, &world.runtime_code_page}) {
    *page = 65001;
    EXPECT_EQ(Status(u"\u0141\xd800"), "filesystem 5: status: *: \"\xc5\x81\xef\xbf\xbd\"");
  }
  Fail(Call::WideCharToMultiByte, 8, {}, 1, kForever);
  EXPECT_EQ(Status(u"a"), "filesystem 5: status: *: \"\"");
  Fail(Call::FormatMessageA, 8);  // It disturbs the last error.
  world.last_error = 32;
  EXPECT_EQ(Raised([] { RaiseLastError("Could not lock it"); }), "system 32: Could not lock it: *");
}

}  // namespace
}  // namespace tolvarine::updater
