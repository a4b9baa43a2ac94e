#include "files/failure.h"

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

class Failures : public FileFixture {
 protected:
  static std::string Narrowed(PathView path) {
    std::string text;
    const std::string thrown = Thrown([&] { text = NarrowPathText(path); });
    return thrown == "done" ? text : thrown;
  }
  static std::string Status(PathView path) {
    return Thrown([&] { throw FilesystemError("status", 5, path); });
  }
};

TEST_F(Failures, PathsAreNarrowedExactlyInTheCodePageOfTheFileCalls) {
  EXPECT_EQ(Narrowed(u"C:\\\u00e9\u20ac"), "C:\\\xe9\x80");
  EXPECT_EQ(Narrowed(u"\u0141"), "system 1113: *");
  EXPECT_EQ(Narrowed(u""), "");
  Inject(Call::WideCharToMultiByte, 8, {}, 2);
  EXPECT_EQ(Narrowed(u"a"), "system 8: *");
  computer.locale.file_apis_ansi = false;
  EXPECT_EQ(Narrowed(u"\u00e9"), "\x82");  // Code page 437.
  computer.locale.runtime_code_page = 65001;
  EXPECT_EQ(Narrowed(u"\u00e9\u0141"), "\xc3\xa9\xc5\x81");
  EXPECT_EQ(Narrowed(u"a\xd800"), "system 1113: *");
}

TEST_F(Failures, AFilesystemErrorAlwaysHasItsPathAndTheRightCode) {
  EXPECT_EQ(Status(u"C:\\\u00e9\u0141"), "filesystem 5: status: *: \"C:\\\xe9?\"");
  EXPECT_EQ(Status(u""), "filesystem 5: status: *: \"\"");
  for (std::uint32_t* page :
       {&computer.locale.ansi_code_page, &computer.locale.runtime_code_page}) {
    *page = 65001;
    EXPECT_EQ(Status(u"\u0141\xd800"), "filesystem 5: status: *: \"\xc5\x81\xef\xbf\xbd\"");
  }
  Inject(Call::WideCharToMultiByte, 8, {}, 1, kAlways);
  EXPECT_EQ(Status(u"a"), "filesystem 5: status: *: \"\"");
  Inject(Call::FormatMessageA, 8);  // It disturbs the last error.
  computer.last_error = 32;
  EXPECT_EQ(Thrown([] { ThrowLastError("Could not lock it"); }), "system 32: Could not lock it: *");
}

}  // namespace
}  // namespace tolvarine::updater
