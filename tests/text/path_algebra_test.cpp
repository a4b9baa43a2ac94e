#include "text/path_algebra.h"

#include "text/machine.h"

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

TEST(PathAlgebra, NormalFormsAreKnown) {
  ExpectEach(LexicallyNormal,
             uR"(
      ~ = ~;          . = .;          ./ = .;         a\.. = .;       a\b\.. = a\;    a\. = a\;
      a//b/ = a\b\;   ..\a = ..\a;    ..\ = ..;       C:/..//a = C:\a;                C:a\.. = C:;
      a\..\..\b\..\.. = ..\..;        C:\a\..\.. = C:\;               C:../a = C:..\a;
      //s/./a/../b = \\s\b;           //?/C:/a/../b = \\?\C:\b;       ...\a.\.b = ...\a.\.b;)");
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
      \\?\C:\a + \\?\D:\a = ~;    \\?\C:\a + C:\a = ~;            C:\\a\b + C:/a = b;)");
}

TEST(PathAlgebra, ExtendedFormIsForAbsolutePaths) {
  ExpectEach(ExtendedLengthPath,
             uR"(
      C:/a/b = \\?\C:\a\b;    //srv/share/x = \\?\UNC\srv\share\x;    C:\a\..\b = \\?\C:\a\..\b;
      \\?\C:\x = \\?\C:\x;    //?/C:/x = \\?\C:\x;                    a/b = a\b;
      C:a = C:a;              /a = \a;                                ~ = ~;)");
}

// --- The slow way: the rules one by one, on the text itself --------------------------------------

std::size_t SlowRootNameLength(const Path& path) {
  const auto slash = [&](std::size_t i) { return i < path.size() && IsSeparator(path[i]); };
  if (path.size() < 2) return 0;
  if (PathView(u"abC").find(path[0]) != PathView::npos && path[1] == u':') return 2;
  if (!slash(0)) return 0;
  const bool fourth_alone = slash(3) && !slash(4);
  if (fourth_alone && slash(1) && (path[2] == u'?' || path[2] == u'.')) return 3;
  if (fourth_alone && path[1] == u'?' && path[2] == u'?') return 3;
  if (slash(1) && path.size() > 2 && !slash(2)) {
    return std::min(path.find_first_of(u"\\/", 2), path.size());
  }
  return 0;
}

// Where a component begins that `matches`, as (start, length); npos where none does.
template <typename Matches>
std::pair<std::size_t, std::size_t> FindComponent(const Path& text, Matches matches) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find(u'\\', start), text.size());
    if (matches(text.substr(start, end - start), text.substr(end))) return {start, end - start};
    start = end + 1;
  }
  return {Path::npos, 0};
}

Path SlowNormal(const Path& path) {
  if (path.empty()) return path;
  const std::size_t name = SlowRootNameLength(path);
  const std::size_t relative = std::min(path.find_first_not_of(u"\\/", name), path.size());
  Path root = path.substr(0, name);
  Path text = path.substr(relative);
  for (Path* part : {&root, &text}) std::ranges::replace(*part, u'/', u'\\');
  if (relative > name) root.push_back(u'\\');
  for (std::size_t at; (at = text.find(u"\\\\")) != Path::npos;) text.erase(at, 1);

  const auto dot = [](const Path& component, const Path&) { return component == u"."; };
  for (std::size_t at; (at = FindComponent(text, dot).first) != Path::npos;) text.erase(at, 2);
  const auto undone = [](const Path& component, const Path& rest) {
    return component != u".." && (rest == u"\\.." || rest.starts_with(u"\\..\\"));
  };
  for (;;) {
    const auto [at, length] = FindComponent(text, undone);
    if (at == Path::npos) break;
    text.erase(at, length + 4);
  }
  while (relative > name && (text == u".." || text.starts_with(u"..\\"))) text.erase(0, 3);
  if (text == u"..\\" || text.ends_with(u"\\..\\")) text.pop_back();
  return root.empty() && text.empty() ? u"." : root + text;
}

Path RandomPath(SeededRandom& random) {
  Path path;
  for (std::size_t length = random.Below(14); length > 0; --length) {
    path.push_back(random.OneOf(PathView(u"\\\\//....abC:?")));
  }
  return path;
}

TEST(PathAlgebra, NormalFormsAreThoseOfTheSlowWayAndStayAsTheyAre) {
  SeededRandom random;
  for (int i = 0; i < 100'000; ++i) {
    const Path path = RandomPath(random);
    const Path normal = LexicallyNormal(path);
    ASSERT_EQ(normal, SlowNormal(path)) << Shown(path);
    ASSERT_EQ(DividePath(path).root_name.size(), SlowRootNameLength(path)) << Shown(path);
    // Text alone can make a root of what was none: ".\C:." is "C:.", which is a drive and a dot.
    if (SlowRootNameLength(normal) == SlowRootNameLength(path)) {
      ASSERT_EQ(LexicallyNormal(normal), normal) << Shown(path);
    }
  }
}

TEST(PathAlgebra, JoiningARelativeFormLeadsBack) {
  SeededRandom random;
  const PathView roots[] = {uR"(C:\)", uR"(\\s\)", uR"(\\?\C:\)"};
  const PathView names[] = {u"a", u"b", u"..."};
  for (int i = 0; i < 20'000; ++i) {
    const PathView root = random.OneOf(roots);
    const auto below_root = [&] {
      Path path(root);
      for (std::size_t n = random.Below(5); n > 0; --n) path = JoinPath(path, random.OneOf(names));
      return random.Below(4) == 0 ? JoinPath(path, u"") : path;
    };
    const Path path = below_root();
    const Path base = below_root();
    // A separator at the end is the one thing that is lost or gained on the way.
    const Path back = LexicallyNormal(JoinPath(base, LexicallyRelative(path, base)));
    ASSERT_EQ(LexicallyNormal(JoinPath(back, u"")), LexicallyNormal(JoinPath(path, u"")))
        << Shown(path) << " from " << Shown(base);
  }
}

}  // namespace
}  // namespace tolvarine::updater
