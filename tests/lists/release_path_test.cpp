#include "lists/release_path.h"

#include "support/simulated_fixture.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

class ReleasePath : public SimulatedFixture {};

TEST_F(ReleasePath, PlainRelativeNamesAreSafeAndNothingElseIs) {
  for (const PathView safe :
       {u"a/b.txt",   u"A\\B.TXT",      u"a//b",  u"/a",     u"\\a",   u"///a",   u".a",    u"a..b",
        u"a b",       u"COM0",          u"LPT0",  u"COM10",  u"COMA",  u"CONIN$", u"a.con", u"con1",
        u"COM\u00b9", u"\u0444/\u00e9", u"a\x7f", u"\uff1a", u"\u3000"}) {
    EXPECT_TRUE(IsSafeReleasePath(safe)) << Shown(safe);
  }
  for (const PathView unsafe :
       {u"",     u"a/",   u"a\\",      u".",        u"..",        u"a/../b",  u"a/./b",
        u"C:a",  u"C:/a", u"\\\\s\\a", u"//s",      u"\\\\?\\C:", u"\\??\\a", u"a.",
        u"a ",   u"a./b", u"a /b",     u"...",      u"con",       u"Con.txt", u"x/nul.tar.gz",
        u"AUX",  u"prn.", u"COM1",     u"lpt9.log", u"com5/x",    u"a<",      u"a>",
        u"a:b",  u"a\"",  u"a|",       u"a?",       u"*",         u"a\x1f",   u"\n",
        u"a/C:b"}) {
    EXPECT_FALSE(IsSafeReleasePath(unsafe)) << Shown(unsafe);
  }
  EXPECT_FALSE(IsSafeReleasePath(PathView(u"a\0b", 3)));
  EXPECT_THROW(static_cast<void>(IsSafeReleasePath(u"a\xd800")), SystemError);
}

TEST_F(ReleasePath, PersistedFormHasSlashesAndIsOtherwiseAsGiven) {
  EXPECT_EQ(GenericUtf8Path(u"a\\b//.\\\u00e9"), "a/b//./\xc3\xa9");
  EXPECT_EQ(PathFromUtf8("a\\b/\xc3\xa9"), u"a\\b/\u00e9");
}

TEST_F(ReleasePath, KeysFoldCaseAndSpellingOfThePathAlone) {
  ExpectEach(PathCompareKey, uR"(A\B//c/./D = a/b/c/d;  C:\Apps\..\X = c:/x;  ~ = ~;  a\.. = .;)");
  EXPECT_TRUE(SamePathKey(u"\u00c4\u0416/x", u"\u00e4\u0436\\X"));
  EXPECT_FALSE(SamePathKey(u"\u00e9", u"e\u0301"));  // No normalization.
  EXPECT_FALSE(SamePathKey(u"\uff21", u"a"));        // No widths.
  for (const std::uint64_t pass : {1u, 2u}) {
    computer.calls.ClearFaults();
    computer.calls.Inject({.call = Call::LCMapStringEx, .first = pass});
    EXPECT_EQ(PathCompareKey(u"A\\B"), u"A/B") << "where the platform cannot map it";
  }
}

TEST_F(ReleasePath, ReleaseOrderIsThatOfTheKeysWithTheExecutableLast) {
  // Keys compare unit by unit: a character beyond the 16-bit ones comes before U+FF41.
  const PathView ordered[] = {
      u"A",          u"a/b",    u"bin/tolvarine.exe", u"tolvarine.exe.x", u"zzz\u00e9",
      u"\U00010428", u"\uff41", u"TOLVARINE.exe"};
  for (const PathView& a : ordered) {
    for (const PathView& b : ordered) {
      EXPECT_EQ(ReleaseEntryBefore(a, b), &a < &b) << Shown(a) << " before " << Shown(b);
    }
  }
  EXPECT_FALSE(ReleaseEntryBefore(u"tolvarine.exe", u"TOLVARINE.EXE"));
}

}  // namespace
}  // namespace tolvarine::updater
