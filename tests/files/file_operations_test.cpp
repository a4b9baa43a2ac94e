#include "files/file_operations.h"

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

constexpr std::uint32_t kReadonly = platform::kFileAttributeReadonly;
constexpr Call kDispose = Call::SetFileInformationByHandle;

class FileOperations : public FileFixture {
 protected:
  FileOperations() {
    computer.disk.WriteFile(u"C:/kept/file", "");
    CreateFiles();
  }

  // A directory C:/d with a file and links of every kind.
  void CreateFiles() {
    computer.disk.WriteFile(u"C:/d/file", "abc");
    computer.disk.MakeSymbolicLink(u"C:/d/link", u"file", false);
    computer.disk.MakeSymbolicLink(u"C:/d/dirlink", u"C:\\kept", true);
    computer.disk.MakeSymbolicLink(u"C:/d/dangling", u"C:\\nowhere\\x", false);
    computer.disk.MakeJunction(u"C:/d/junction", u"\\??\\C:\\kept");
    computer.disk.MakeReparsePoint(u"C:/d/tagged", 0x80000017, false);
  }
};

// --- Status --------------------------------------------------------------------------------------

// The kind, and the code if there is one.
std::string Description(const FileStatus& status) {
  const char* const kinds[] = {"none", "not_found", "regular", "directory", "symlink", "",
                               "",     "",          "",        "",          "junction"};
  const std::string code = status.error == 0 ? "" : " " + std::to_string(status.error);
  return kinds[static_cast<int>(status.kind)] + code;
}

// The target of links, the entry itself, and the size if there is one.
std::string Seen(PathView path) {
  const FileStatus followed = QueryStatus(path);
  const FileStatus itself = QueryLinkStatus(path);
  const FileSize size = QueryFileSize(path);
  EXPECT_EQ(size.error, followed.error) << Shown(path);
  EXPECT_TRUE(size.error == 0 || size.size == ~std::uint64_t{0}) << Shown(path);
  const std::string number = size.error == 0 ? ", " + std::to_string(size.size) : "";
  return Description(followed) + ", " + Description(itself) + number;
}

TEST_F(FileOperations, EachKindIsSeenThroughLinksAndAsItself) {
  computer.disk.MakeReparsePoint(u"C:/d/taggeddir", 0x9000001A, true);
  ExpectEach(Seen,
             uR"(
      C:/d/file = regular, regular, 3;           C:/d/ = directory, directory, 0;
      C:/d/link = regular, symlink, 3;           C:/d/dirlink = directory, symlink, 0;
      C:/d/junction = directory, junction, 0;    C:/d/junction/file = regular, regular, 0;
      C:/d/dangling = not_found 3, symlink;      C:/d/tagged = none 1920, regular;
      C:/d/taggeddir = none 1920, directory;     C:/d/no = not_found 2, not_found 2;
      C:/d/file/no = not_found 3, not_found 3;   C:/d/fi?e = not_found 123, not_found 123;
      //s/share/a = not_found 53, not_found 53;)");
  EXPECT_TRUE(IsRegularFile(u"C:/d/link"));
  EXPECT_FALSE(IsRegularFile(u"C:/d") || IsRegularFile(u"C:/d/dangling"));
  EXPECT_EQ(Thrown([] { return IsRegularFile(u"C:/d/tagged"); }),
            "filesystem 1920: status: *: \"C:/d/tagged\"");
}

TEST_F(FileOperations, AFailedQueryIsItsCodeButForASharingViolation) {
  const std::pair<Call, std::uint64_t> queries[] = {{Call::GetFileAttributesExW, 1},
                                                    {Call::CreateFile2, 1},
                                                    {Call::GetFileInformationByHandleEx, 1},
                                                    {Call::GetFileInformationByHandleEx, 2},
                                                    {Call::GetFileInformationByHandleEx, 3}};
  for (const auto& [call, occurrence] : queries) {
    Inject(call, 5, {}, occurrence);
    EXPECT_EQ(Description(QueryLinkStatus(u"C:/d/link")), "none 5") << CallName(call) << occurrence;
  }
  // A file that somebody holds answers through its directory.
  Inject(Call::GetFileAttributesExW, 32, {}, 1, kAlways);
  ExpectEach(Seen, u"C:/d/file = regular, regular, 3; C:/d/junction = directory, junction, 0;");
  computer.calls.Inject({.call = Call::FindFirstFileW, .code = 64});
  EXPECT_EQ(Description(QueryStatus(u"C:/d/file")), "not_found 64");
}

// --- Directories ---------------------------------------------------------------------------------

TEST_F(FileOperations, OneCodeIsLeftOfTheWayToADirectory) {
  // The paths that are asked for, in order, and the code.
  const auto make = [&](PathView path) {
    std::uint32_t code = 0;
    Count(Call::CreateDirectoryW, [&] { code = CreateDirectories(path); });
    std::string asked;
    for (const auto& record : computer.calls.trace) {
      if (record.call == Call::CreateDirectoryW) asked += Shown(record.path) + ", ";
    }
    return asked + std::to_string(code);
  };
  computer.disks.AddVolume(0).share = u"\\\\s\\share";
  ExpectEach(make,
             uR"(
      ~ = 3;           C:\ = 0;         r/s = r, r/s, 0;        Q:/a = Q:/a, 3;
      C:\n//m\ = C:\n, C:\n//m, C:\n//m\, 0;
      \\?\C:\p\q = \\?\C:\p, \\?\C:\p\q, 0;
      \\s\share\a = \\s\share, \\s\share\a, 0;
      C:/d/junction/a = C:/d, C:/d/junction, C:/d/junction/a, 0;
      C:/d/dangling = C:/d, C:/d/dangling, 3;     C:\D:x = C:\D:x, 123;
      C:/d/file/a/b = C:/d, C:/d/file, C:/d/file/a, C:/d/file/a/b, 183;
      C:/d/file = C:/d, C:/d/file, 183;)");
  // Forgotten where the deepest is there in the end; else the last one that is no absence.
  const std::tuple<PathView, PathView, std::uint32_t, std::uint32_t> table[] = {
      {u"C:/d/z", u"/none", 0, 0}, {u"C:/d/y", u"/y", 19, 19}, {u"C:/d/e/x", u"/e", 267, 5}};
  for (const auto& [path, name, code, left] : table) {
    Inject(Call::CreateDirectoryW, 5, u"/d");
    computer.calls.Inject({Call::CreateDirectoryW, 1, 1, code, Path(name), {}});
    EXPECT_EQ(CreateDirectories(path), left) << Shown(path);
  }
  Inject(Call::GetFileAttributesExW, 5);
  EXPECT_EQ(CreateOneDirectory(u"C:/d"), 5u);
}

// The entries that a walk visits, with a blank after each, and the code that ended it, if any.
std::string Walk(const Path& root, const Path& stop_at = u"?") {
  std::string seen;
  const std::uint32_t code = EnumerateTree(root, [&](const TreeEntry& entry) -> std::uint32_t {
    seen += Shown(entry.path.substr(root.size()));
    if (entry.size_known) seen += "=" + std::to_string(entry.size);
    seen += entry.reparse_tag != 0 ? "@ " : " ";
    return entry.path.ends_with(stop_at) ? 77 : 0;
  });
  return seen + (code == 0 ? "" : std::to_string(code));
}

TEST_F(FileOperations, ATreeIsWalkedFromTheTopAndLinksAreNotEntered) {
  computer.disk.WriteFile(u"C:/d/b/c/x", "12345");
  computer.disk.MakeDirectory(u"C:/d/a");
  const std::string links = "\\dangling@ \\dirlink@ \\file=3 \\junction@ \\link@ \\tagged@ ";
  EXPECT_EQ(Walk(u"C:\\d"), "\\a=0 \\b=0 \\b\\c=0 \\b\\c\\x=5 " + links);
  EXPECT_EQ(Walk(u"C:\\d\\a"), "");
  EXPECT_EQ(Walk(u"C:\\d\\file"), "267");
  EXPECT_EQ(Walk(u"C:\\no"), "3");
  EXPECT_EQ(Walk(u"C:\\d", u"c"), "\\a=0 \\b=0 \\b\\c=0 77");
  Inject(Call::FindFirstFileExW, 5, u"b\\*");
  EXPECT_EQ(Walk(u"C:\\d"), "\\a=0 \\b=0 5") << "seen before the failure to enter it";
  Inject(Call::FindFirstFileExW, 2, u"b\\*");
  EXPECT_EQ(Walk(u"C:\\d"), "\\a=0 \\b=0 " + links) << "it exists, so it is empty";
  Inject(Call::FindFirstFileExW, 2, u"no\\*");
  EXPECT_EQ(Walk(u"C:\\no"), "2");
  Inject(Call::FindNextFileW, 1117, {}, 5);  // Past ".", "..", "a" and the two of its own.
  EXPECT_EQ(Walk(u"C:\\d"), "\\a=0 1117");
  computer.disks.AddVolume(u'E');
  EXPECT_EQ(Walk(u"E:\\"), "") << "the root of a volume has not even dots";
}

// --- Removal -------------------------------------------------------------------------------------

class Removal : public FileOperations {
 protected:
  // The number of dispositions that a removal takes, and "removed", "nothing" or the code.
  std::string Remove(const Path& path) {
    RemovalResult result;
    const auto count = Count(kDispose, [&] { result = RemoveEntry(path); });
    EXPECT_TRUE(result.error == 0 || !result.removed);
    const std::string words = result.removed ? "removed" : "nothing";
    return std::to_string(count) + " " + (result.error == 0 ? words : std::to_string(result.error));
  }

  std::string RemoveAll(const Path& path, const Path& last = {}) {
    TreeRemovalResult result;
    const auto count = Count(kDispose, [&] { result = RemoveTree(path, last); });
    return std::to_string(count) + ": " + std::to_string(result.removed) + " removed, " +
           std::to_string(result.error);
  }

  void MakeFile(std::uint32_t attributes) {
    computer.disk.WriteFile(u"C:/f", "");
    computer.disk.SetAttributes(u"C:/f", attributes);
  }
};

TEST_F(Removal, EntriesOfEveryKindGoByThemselvesOnEveryKindOfVolume) {
  for (const bool posix : {true, false}) {
    computer.disks.volume(u'C').posix_delete = posix;
    computer.disk.MakeDirectory(u"C:/d/dir");
    computer.disk.MakeDirectory(u"C:/d/readonlydir");
    computer.disk.SetAttributes(u"C:/d/readonlydir", kReadonly | platform::kFileAttributeDirectory);
    computer.disk.WriteFile(u"C:/d/readonly", "");
    computer.disk.SetAttributes(u"C:/d/readonly",
                                kReadonly);  // Without it, there is no attribute at all.
    for (const auto& [name, content] : computer.disk.Tree(u"C:/d")) {
      const Path path = u"C:/d/" + name.substr(0, name.find(u'\\'));
      EXPECT_EQ(Remove(path).substr(2), "removed") << Shown(path) << posix;
      EXPECT_FALSE(computer.disk.Exists(path)) << Shown(path);
    }
    EXPECT_TRUE(computer.disk.Exists(u"C:/kept/file"));
    CreateFiles();
  }
}

TEST_F(Removal, WhatIsNotThereIsNoFailureAndWhatStandsInTheWayIs) {
  ExpectEach([&](const Path& path) { return Remove(path); },
             uR"(
      C:/d/no = 0 nothing;    C:/no/no = 0 nothing;    C:/d/file/no = 0 nothing;
      C:/d/fi?e = 0 nothing;  C:/d = 1 145;)");
  const auto held =
      computer.disk.Hold(u"C:/d/file", platform::kGenericRead, platform::kFileShareRead);
  EXPECT_EQ(Remove(u"C:/d/file"), "0 32");
  computer.disk.Release(held);
  const auto shared =
      computer.disk.Hold(u"C:/d/file", platform::kGenericRead, platform::kFileShareAll);
  EXPECT_EQ(Remove(u"C:/d/file"), "1 removed");
  EXPECT_FALSE(computer.disk.Exists(u"C:/d/file")) << "the name goes although somebody reads";
  computer.disk.Release(shared);
}

TEST_F(Removal, AnOlderVolumeIsAskedInOlderWays) {
  for (const std::uint32_t unknown : {1u, 50u, 87u}) {
    MakeFile(kReadonly);
    Inject(kDispose, unknown, {}, 1, 2);
    EXPECT_EQ(Remove(u"C:/f"), "5 removed") << unknown;
  }
  // The dispositions: two that the volume does not know, a refused one, the clearing of the
  // attribute, the second and third again, and the restoring of the attribute after a refusal.
  computer.disks.volume(u'C').posix_delete = false;
  const std::tuple<std::string, Call, std::uint64_t, std::string> table[] = {
      {"nothing fails", Call::CreateFile2, 9, "6 removed"},
      {"open with the right to write attributes", Call::CreateFile2, 1, "3 5"},
      {"refusal", kDispose, 1, "1 5"},
      {"query of the attribute", Call::GetFileInformationByHandleEx, 1, "3 5"},
      {"clearing of the attribute", kDispose, 4, "4 5"}};
  for (const auto& [name, call, occurrence, result] : table) {
    MakeFile(kReadonly);
    Inject(call, 5, {}, occurrence);
    EXPECT_EQ(Remove(u"C:/f"), result) << name;
  }
  MakeFile(kReadonly | platform::kFileAttributeArchive);
  Inject(kDispose, 5, {}, 6);
  EXPECT_EQ(Remove(u"C:/f"), "7 5");
  EXPECT_EQ(computer.disk.Look(u"C:/f")->attributes, kReadonly | platform::kFileAttributeArchive);
  MakeFile(platform::kFileAttributeArchive);
  Inject(kDispose, 5, {}, 3);
  EXPECT_EQ(Remove(u"C:/f"), "3 5") << "there is no attribute to clear";
  Inject(Call::CreateFile2, 5, {}, 1, 2);
  EXPECT_EQ(Remove(u"C:/f"), "0 5");
}

TEST_F(Removal, ATreeGoesWithoutWhatItsLinksLeadToAndKeepsOneEntryToTheLast) {
  const Path tree = u"C:\\d";
  const Path last = u"C:\\d\\a";
  computer.disk.WriteFile(u"C:/d/a/b/x", "");
  // The first failure ends it. That of an entry is no matter of the enumeration, whatever its code.
  Inject(Call::FindFirstFileExW, 5);
  EXPECT_EQ(RemoveAll(tree, last), "0: 0 removed, 5");
  Inject(Call::GetFileAttributesExW, 5);
  EXPECT_EQ(RemoveAll(tree, last), "0: 0 removed, 5");
  Inject(kDispose, 64, u"file");
  EXPECT_EQ(RemoveAll(tree, last), "3: 2 removed, 64") << "two links before it";
  Inject(Call::CreateFile2, 32, u"b");
  EXPECT_EQ(RemoveAll(tree, last), "5: 5 removed, 32") << "four beside it, and the file in a/b";
  EXPECT_EQ(RemoveAll(tree), "3: 3 removed, 0");
  EXPECT_EQ(RemoveAll(tree), "0: 0 removed, 0");
  EXPECT_EQ(RemoveAll(u"C:/kept/file"), "1: 1 removed, 0") << "kept, and no directory";
}

TEST_F(Removal, AnEmptiedDirectoryIsTriedTenTimes) {
  const auto remove = [&](std::uint32_t code, std::uint64_t failures) {
    computer.disk.MakeDirectory(u"C:/e");
    Inject(kDispose, code, {}, 1, failures);
    return RemoveAll(u"C:/e");
  };
  EXPECT_EQ(remove(145, 9), "10: 1 removed, 0");
  EXPECT_EQ(remove(145, kAlways), "10: 0 removed, 145");
  EXPECT_EQ(remove(5, kAlways), "10: 0 removed, 5");
  EXPECT_EQ(remove(32, kAlways), "1: 0 removed, 32");
}

// --- Durability ----------------------------------------------------------------------------------

const Path kLong = u"C:\\" + Path(200, u'd') + u"\\" + Path(80, u'f');
const Path kExtended = u"\\\\?\\" + kLong;

TEST_F(FileOperations, AFlushKeepsWritersOffAndItsCodeThroughTheClose) {
  computer.disk.WriteFile(kExtended, "abc");
  const auto check = [&] {
    EXPECT_TRUE(CanOpen(kExtended, platform::kGenericRead));
    EXPECT_FALSE(CanOpen(kExtended, platform::kGenericWrite));
  };
  RunWithHook(Call::FlushFileBuffers, check, [] { FlushFile(kLong); });
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty());
  Inject(Call::FlushFileBuffers, 23);
  computer.calls.Inject({.call = Call::CloseHandle, .code = 6});
  EXPECT_EQ(Thrown([] { FlushFile(u"C:/d/file"); }), "system 23: *");
  EXPECT_EQ(Thrown([] { FlushFile(u"C:/d"); }), "system 5: *") << "never a directory";
}

TEST_F(FileOperations, AReplacementIsOneDurableStep) {
  const auto replace = [](const Path& from, const Path& to) {
    return Thrown([&] { ReplaceFileDurably(from, to); });
  };
  computer.disks.AddVolume(u'E');
  computer.disk.WriteFile(kExtended, "new");
  computer.disks.Settle();
  Inject(Call::MoveFileExW, 5);
  EXPECT_EQ(replace(kLong, u"C:/d/file"), "system 5: *");
  EXPECT_EQ(replace(kLong, u"C:/d/file"), "done");
  EXPECT_EQ(computer.disk.ReadFile(u"C:/d/file"), "new");
  EXPECT_FALSE(computer.disk.Exists(kExtended));
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty()) << "not written through";
  EXPECT_EQ(replace(u"C:/d/file", u"E:/file"), "system 17: *") << "nothing is copied instead";
}

}  // namespace
}  // namespace tolvarine::updater
