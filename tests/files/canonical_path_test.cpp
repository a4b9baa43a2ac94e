#include "files/canonical_path.h"

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

class CanonicalPath : public FileFixture {
 protected:
  CanonicalPath() {
    computer.disk.WriteFile(u"C:/Root/Data/File.TXT", "");
    computer.disk.WriteFile(u"C:/Else/x", "");
    computer.disk.MakeSymbolicLink(u"C:/Root/in", u"Data", true);
    computer.disk.MakeJunction(u"C:/Root/out", u"C:\\Else");
    computer.disk.MakeSymbolicLink(u"C:/Root/outfile", u"..\\Else\\x", false);
    computer.disk.MakeSymbolicLink(u"C:/Root/dangling", u"C:\\Else\\no", false);
    computer.disks.AddVolume(0).share = u"\\\\srv\\share";
    computer.disk.WriteFile(u"//srv/share/a/b", "");
    computer.disks.AddVolume(0);  // Neither a letter nor a share.
    computer.disk.MakeDirectory(u"\\\\?\\GLOBALROOT\\Device\\HarddiskVolume3\\x");
  }

  // The resolved path, or the code.
  static std::string Resolved(PathView path) {
    Path resolved = u"of an earlier path";
    const std::uint32_t code = Canonicalize(path, resolved);
    EXPECT_TRUE(code == 0 || resolved.empty());
    return code == 0 ? Shown(resolved) : std::to_string(code);
  }
  static std::string WeaklyResolved(PathView path) {
    std::uint32_t code = 99;
    const Path resolved = WeaklyCanonicalize(path, code);
    EXPECT_TRUE(code == 0 || resolved.empty());
    return code == 0 ? Shown(resolved) : std::to_string(code);
  }
  static std::string Joined(PathView root, PathView relative) {
    Path joined;
    const std::string thrown = Thrown([&] { joined = SafeJoin(root, relative, "update target"); });
    if (thrown == "runtime: Unsafe update target path") return "unsafe";
    if (thrown == "runtime: update target path escapes its root") return "escapes";
    return thrown == "done" ? Shown(joined) : thrown;
  }
};

TEST_F(CanonicalPath, APathIsResolvedIntoTheSpellingOnTheDisk) {
  ExpectEach(Resolved,
             uR"(
      c:/root/DATA//./file.txt = C:\Root\Data\File.TXT;         c:/ = C:\;              ~ = ~;
      C:/Root/in/../in/file.txt = C:\Root\Data\File.TXT;        C:/Root/dangling = 2;
      \\?\c:\root\out\ = C:\Else;                               C:/Root/outfile = C:\Else\x;
      //SRV/share/A/b = \\srv\share\a\b;                        C:/no/no = 3;
      \\?\GLOBALROOT\Device\HarddiskVolume3\X = \\?\GLOBALROOT\Device\HarddiskVolume3\x;)");
  const auto root = [] { return Resolved(u"C:/Root"); };
  for (const Call call : {Call::CreateFile2, Call::GetFinalPathNameByHandleW}) {
    Inject(call, 5);
    EXPECT_EQ(root(), "5") << CallName(call);
  }
  Inject(Call::GetFinalPathNameByHandleW, 3);
  EXPECT_EQ(root(), "\\\\?\\GLOBALROOT\\Device\\HarddiskVolume1\\Root") << "no drive letter";
  Inject(Call::GetFinalPathNameByHandleW, 3, {}, 1, 2);
  EXPECT_EQ(root(), "3");
}

TEST_F(CanonicalPath, ALongResultGrowsItsBuffer) {
  for (const std::size_t length : {8u, 9u, 10u, 11u, 12u, 13u, 200u}) {
    const Path file = u"C:\\" + Path(240, u'd') + u"\\" + Path(length, u'f');
    computer.disk.WriteFile(u"\\\\?\\" + file, "");
    EXPECT_EQ(Resolved(u"\\\\?\\" + file), Shown(file));
  }
}

TEST_F(CanonicalPath, TheMissingTailIsCarriedOverAsItWasSpelled) {
  ExpectEach(WeaklyResolved,
             uR"(
      c:/root/data = C:\Root\Data;              c:/root/IN/./N/../N//F = C:\Root\Data\N\F;
      c:/root/out/a/ = C:\Else\a\;              c:/root/outfile/a = C:\Else\x\a;
      c:/root/dangling = C:\Root\dangling;      c:/root/no/in = C:\Root\no\in;
      //srv/share/A/C = \\srv\share\a\C;        Q:/a/../b = Q:\b;    C:/root/a? = C:\Root\a?;
      \\?\C:\Root = C:\Root;                   \\?\C:\no\x = C:\no\x;
      a\..\b = b;                              C:\no\c:x = c:x;      C:\no\C:x = C:\no\x;)");
  Inject(Call::CreateFile2, 5, u"data");
  EXPECT_EQ(WeaklyResolved(u"C:/Root/Data/no/no"), "5") << "in the middle";
  Inject(Call::CreateFile2, 32);
  EXPECT_EQ(WeaklyResolved(u"C:/Root/Data"), "32");
  Inject(Call::CreateFile2, 267, u"data");
  EXPECT_EQ(WeaklyResolved(u"c:/root/data/no"), "C:\\Root\\data\\no");
}

TEST_F(CanonicalPath, InsideMeansTheSameFormTheSameSpellingAndWholeComponents) {
  const auto inside = [](PathView path, PathView root) {
    return std::string(IsInsideRoot(path, root) ? "yes" : "no");
  };
  ExpectEach(inside,
             uR"(
      C:/a + C:\a = yes;              C:\a\b + C:\a\ = yes;           C:\a\ + C:\a = yes;
      C:\a\... + C:\a = yes;          \\s\x\y + \\s\x = yes;          \\?\C:\a\b + \\?\C:\a = yes;
      C:\ab + C:\a = no;              C:\a + C:\a\b = no;             C:\a\b + C:\A = no;
      D:\a + C:\a = no;               C:\a + \\?\C:\a = no;           \\?\C:\a + \\?\D:\a = no;
      \\s\x + \\s = yes;              \\s\??\a + \\s = no;
      \\s\y + \\s\x = no;             C:\a\D:x + C:\a = no;           a + C:\ = no;
      ~ + C:\ = no;)");
}

TEST_F(CanonicalPath, OnlyASafePathThatStaysInItsRootIsJoined) {
  // What is joined stays text: nothing is resolved in it.
  ExpectEach([](PathView relative) { return Joined(u"C:\\Root", relative); },
             uR"(
      data/file.txt = C:\Root\data\file.txt;    Data\\New/x = C:\Root\Data\New\x;
      in\File.TXT = C:\Root\in\File.TXT;        in/new = C:\Root\in\new;
      dangling = C:\Root\dangling;              /Root/x = C:\Root\x;
      ..\Else = unsafe;  /x = unsafe;           out = escapes;         out/new/x = escapes;
      outfile = escapes;)");
  EXPECT_EQ(Joined(u"C:\\root", u"Data"), "escapes") << "the root is not spelled as on the disk";
  Inject(Call::CreateFile2, 5);
  EXPECT_EQ(Joined(u"C:\\Root", u"Data"), "escapes") << "what cannot be resolved is not trusted";
}

}  // namespace
}  // namespace tolvarine::updater
