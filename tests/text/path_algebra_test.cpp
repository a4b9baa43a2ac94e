#include "text/path_algebra.h"

#include "support/simulated_fixture.h"

namespace tolvarine::updater {
namespace {

TEST(PathAlgebra, PathsDivideAtTheirRoots) {
  const auto divided = [](PathView path) {
    const PathParts parts = DividePath(path);
    EXPECT_EQ(RootNameEnd(path.data(), path.data() + path.size()),
              path.data() + parts.root_name.size());
    const Path kind = IsAbsolutePath(path) ? u" absolute" : u"";
    return Path(parts.root_name) + u"|" + Path(parts.root_directory) + u"|" + Path(parts.relative) +
           kind;
  };
  ExpectEach(divided,
             uR"(
      ~ = ||;                 C:\a\b = C:|\|a\b absolute;       z://a = z:|//|a absolute;
      C:x = C:||x;            C: = C:||;                        1:\a = ||1:\a;
      \x = |\|x;              \ = |\|;                          a\\b/ = ||a\\b/;
      \\s\share\a = \\s|\|share\a absolute;                     //s = //s|| absolute;
      \\ = |\\|;              \\\a = |\\\|a;
      \\?\C:\a = \\?|\|C:\a absolute;                           \\?\ = \\?|\| absolute;
      //./pipe = //.|/|pipe absolute;                           \\?\\a = \\?|\\|a absolute;
      \??\C:\a = \??|\|C:\a absolute;                           \??\\a = |\|??\\a;
      \?? = |\|??;)");
  EXPECT_FALSE(HasDrivePrefix(u"\u00c4:"));
}

TEST(PathAlgebra, ElementsAreTheRootsAndTheComponents) {
  const auto elements = [](PathView path) {
    Path text;
    for (const PathView element : PathElements(path))
      text.append(u"<").append(element).append(u">");
    return text.append(LastComponent(path)).append(u".");
  };
  ExpectEach(elements,
             uR"(
      C:\a//b\ = <C:><\><a><b><>.;  \\s\x = <\\s><\><x>x.;  a = <a>a.;
      \?a\x = <\><?a><x>x.;
      //a\ = <//a><\>.;             C:a = <C:><a>a.;        ~ = .;)");
}

TEST(PathAlgebra, ParentKeepsTheRootWhole) {
  ExpectEach(ParentPath,
             uR"(
      ~ = ~;          a = ~;          a\b = a;        a\/b = a;       a\b\ = a\b;
      C:\a = C:\;     C:\ = C:\;      C: = C:;        C:a = C:;       \a = \;
      //s = //s;      //s/a = //s/;   \\s\a\b = \\s\a;                \\?\C:\a = \\?\C:;)");
}

TEST(PathAlgebra, JoinTakesTheRightSideAsSeenFromTheLeft) {
  ExpectEach(JoinPath,
             uR"(
      C:\x + a = C:\x\a;      C:/x/ + a/b = C:/x/a/b;  C:\x + ~ = C:\x\;      ~ + a = a;
      C: + a = C:a;           C: + C:a = C:a;          \\s + a = \\s\a;       C:\x + C:a = C:\x\a;
      c:\x + C:a = C:a;       C:\x + D:a = D:a;        x + C:a = C:a;         C:\x + \a = C:\a;
      \\s\x + /a = \\s/a;     C:\x + C:\a = C:\a;      C:\x + \\s\a = \\s\a;  x\y + \a = \a;)");
}

TEST(PathAlgebra, NormalFormsAreKnownAndStayAsTheyAre) {
  const auto normal = [](PathView path) {
    const Path once = LexicallyNormal(path);
    EXPECT_EQ(LexicallyNormal(once), once);
    return once;
  };
  ExpectEach(normal,
             uR"(
      ~ = ~;          . = .;          ./ = .;         a\.. = .;       a\b\.. = a\;    a\. = a\;
      a//b/ = a\b\;   ..\a = ..\a;    ..\ = ..;       C:/..//a = C:\a;                C:a\.. = C:;
      a\..\..\b\..\.. = ..\..;        C:\a\..\.. = C:\;               C:../a = C:..\a;
      //s/./a/../b = \\s\b;           //?/C:/a/../b = \\?\C:\b;       ...\a.\.b = ...\a.\.b;
      a\.\.\..\b\ = b\;               ..\.. = ..\..;    ..\a\.. = ..;                a\..\ = .;
      a\b\..\..\c\.. = .;              \..\a\.\ = \a\;   .\..\. = ..;                 \. = \;)");
}

TEST(PathAlgebra, RelativeFormsAreKnown) {
  ExpectEach(LexicallyRelative,
             uR"(
      C:\a\b + C:\a = b;          C:/a//b\c + C:\a = b\c;         C:\a + C:\a\b\c = ..\..;
      C:\b + C:\a = ..\b;         C:\a + C:\a = .;                C:\a\ + C:\a = .;
      C:\a + C:\a\ = .;           C:\a + C:\. = a;                C:\a + D:\a = ~;
      C:\a + c:\a = ~;            C:\A + C:\a = ..\A;             C:a + C:\a = ~;
      a + \a = ~;                 a + .. = ~;                     a + a\.. = ~;
      a\b + a\..\c = b;           C:\a\D:x + C:\a = ~;            C:\a + C:\D:x = ~;
      \\s\x\a + \\s\x = a;        \\s\x + \\s = \x;               \\?\C:\a\b + \\?\C:\a = b;
      \a + a = \a;                //s/x/a + \\s\x = a;         C:\a\ + C:\a\b = ..\;
      \\?\C:\a + \\?\D:\a = ~;    \\?\C:\a + C:\a = ~;            C:\\a\b + C:/a = b;)");
}

TEST(PathAlgebra, ExtendedFormIsForAbsolutePaths) {
  ExpectEach(ExtendedLengthPath,
             uR"(
      C:/a/b = \\?\C:\a\b;    //srv/share/x = \\?\UNC\srv\share\x;    C:\a\..\b = \\?\C:\a\..\b;
      \\?\C:\x = \\?\C:\x;    //?/C:/x = \\?\C:\x;                    a/b = a\b;
      C:a = C:a;              /a = \a;                                ~ = ~;)");
}

}  // namespace
}  // namespace tolvarine::updater
