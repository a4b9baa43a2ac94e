// Names: given, taken over, removed, listed, and too long.

#include <vector>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

using Names = std::vector<Path>;

class NamesTest : public ContractTest {
 protected:
  // What a search in the directory finds, in its order; `act` may change the directory meanwhile.
  static Names Listed(const Path& directory, const std::function<void(const FindData&)>& act = {}) {
    FindData data;
    const Handle find = FindFirstFileExW((directory + u"\\*").c_str(), kFindExInfoBasic, &data,
                                         kFindExSearchNameMatch, 0);
    Names names;
    do {
      names.push_back(data.name);
      if (act) act(data);
    } while (FindNextFileW(find, &data));
    EXPECT_EQ(kErrorNoMoreFiles, GetLastError());
    EXPECT_EQ(kErrorNoMoreFiles, Code(FindNextFileW(find, &data)));
    EXPECT_TRUE(FindClose(find));
    return names;
  }
};

TEST_F(NamesTest, ARenameReplacesWhatStoodThereUnderTheNameAsSpelled) {
  constexpr auto* kGap = "it keeps the spelling that stands there";
  Put(At(u"old"), "old");
  Put(At(u"new"), "new");
  MakeHardLink(At(u"old"), At(u"link"));
  EXPECT_EQ(0u, Rename(At(u"new"), At(u"Old")));
  EXPECT_BUT_ON_WINE(Listed(root()), (Names{u".", u"..", u"link", u"Old"}),
                     (Names{u".", u"..", u"link", u"old"}), kGap);
  EXPECT_EQ("new", Content(At(u"old")));
  EXPECT_EQ("old", Content(At(u"link")));
  EXPECT_EQ(0u, Rename(At(u"old"), At(u"OLD")));
  EXPECT_BUT_ON_WINE(Listed(root()).back(), u"OLD", u"old", kGap);
}

TEST_F(NamesTest, AMarkedFileGoesWithItsLastHandle) {
  Put(At(u"file"), "content");
  File reader(At(u"file"), kGenericRead);
  EXPECT_EQ(0u, Mark(At(u"file")));
  EXPECT_EQ("content", Read(reader.handle, 100));
  EXPECT_EQ((Names{u".", u"..", u"file"}), Listed(root()));
  reader.Close();
  EXPECT_EQ((Names{u".", u".."}), Listed(root()));
}

TEST_F(NamesTest, TheNewerRemovalAndDeleteFileWTakeTheNameAtOnce) {
  Put(At(u"read-only"), "content");
  Put(At(u"plain"), "content");
  SetAttributes(At(u"read-only"), kFileAttributeReadonly);
  const File reader(At(u"read-only"), kGenericRead);
  const File other_reader(At(u"plain"), kGenericRead);
  const auto remove = [&](std::uint32_t ignore_readonly) {
    const File file(OpenForRemoval(At(u"read-only")));
    return Code(SetFileInformationByHandle(
        file.handle, FileDispositionInfoEx{kFileDispositionDelete | kFileDispositionPosixSemantics |
                                           ignore_readonly}));
  };
  EXPECT_BUT_ON_WINE(remove(0), kErrorAccessDenied, kErrorInvalidParameter, "lacks the class");
  EXPECT_BUT_ON_WINE(remove(kFileDispositionIgnoreReadonly), 0u, kErrorInvalidParameter,
                     "lacks the class");
  EXPECT_TRUE(DeleteFileW(At(u"plain").c_str()));
  EXPECT_EQ("content", Read(reader.handle, 100));
  EXPECT_EQ("content", Read(other_reader.handle, 100));
  EXPECT_BUT_ON_WINE(Listed(root()), (Names{u".", u".."}),
                     (Names{u".", u"..", u"plain", u"read-only"}), "waits for the last handle");
}

TEST_F(NamesTest, TheOlderRemovalNeedsAnEmptyDirectoryAndAWritableFile) {
  constexpr std::uint32_t kReadonlyArchive = kFileAttributeReadonly | kFileAttributeArchive;
  const Path file = At(u"directory\\file");
  CreateDirectoryW(At(u"directory").c_str());
  Put(file, "content");
  EXPECT_EQ(kErrorDirNotEmpty, Mark(At(u"directory")));
  {
    const File opened(OpenForRemoval(file));
    for (const std::uint32_t attributes : {kReadonlyArchive, 0u, kFileAttributeArchive}) {
      EXPECT_TRUE(
          SetFileInformationByHandle(opened.handle, FileBasicInfo{.attributes = attributes}));
      // None at all leaves them as they are.
      const std::uint32_t expected = attributes != 0 ? attributes : kReadonlyArchive;
      EXPECT_EQ(expected, Attributes(file));
      EXPECT_EQ(expected == kReadonlyArchive ? kErrorAccessDenied : 0,
                Code(SetFileInformationByHandle(opened.handle, FileDispositionInfo{true})));
    }
  }
  EXPECT_EQ(0u, Mark(At(u"directory")));
  EXPECT_EQ(kInvalidFileAttributes, Attributes(At(u"directory")));
}

TEST_F(NamesTest, ACopyTakesContentAndAttributesAlong) {
  Put(At(u"source"), "content");
  Put(At(u"target"), "a longer text");
  const auto copy = [&](const char16_t* to, bool fail_if_exists = false) {
    return Code(CopyFileW(At(u"source").c_str(), At(to).c_str(), fail_if_exists));
  };
  EXPECT_EQ(80u, copy(u"target", true));
  EXPECT_EQ("a longer text", Content(At(u"target")));
  EXPECT_EQ(0u, copy(u"target"));
  EXPECT_EQ("content", Content(At(u"target")));
  EXPECT_EQ(kErrorSharingViolation, copy(u"SOURCE"));
  SetAttributes(At(u"source"), kFileAttributeReadonly);
  EXPECT_EQ(0u, copy(u"new", true));
  EXPECT_EQ("content", Content(At(u"new")));
  EXPECT_EQ(kFileAttributeReadonly, Attributes(At(u"new")) & kFileAttributeReadonly);
}

TEST_F(NamesTest, ASearchListsInTheOrderOfCapitalsWhateverGoesMeanwhile) {
  const Names names = {u".",  u"..", u"A",  u"a.b", u"a1", u"b",      u"c c",   u"Z",
                       u"z~", u"[",  u"^_", u"_",   u"~",  u"\u00C4", u"\u00E9"};
  for (auto name = names.rbegin(); name->front() != u'.'; ++name) Put(At(*name), "");
  EXPECT_EQ(names,
            Listed(root(), [&](const FindData& data) { DeleteFileW(At(data.name).c_str()); }));
  EXPECT_EQ((Names{u".", u".."}), Listed(root()));
  EXPECT_NE(u".", Listed(root().substr(0, 2)).front()) << "a volume's root lies in no directory";
}

TEST_F(NamesTest, ARecordTellsSpellingSizeAndAttributesWhoeverHoldsTheFile) {
  Put(At(u"Some File"), "content");
  const File held(At(u"some file"), kGenericRead, kFileShareNone);
  FindData one;
  EXPECT_TRUE(FindClose(FindFirstFileW(At(u"SOME FILE").c_str(), &one)));
  FileAttributeData by_path;
  EXPECT_TRUE(GetFileAttributesExW(At(u"some file").c_str(), &by_path));
  Listed(root(), [&](const FindData& data) {
    const bool file = data.name.front() != u'.';
    EXPECT_EQ(file ? one.attributes : kFileAttributeDirectory, data.attributes);
    EXPECT_EQ(file ? 7u : 0u, data.size);
  });
  EXPECT_EQ(u"Some File", one.name);
  EXPECT_EQ(7u, one.size);
  EXPECT_EQ(7u, by_path.size);
  EXPECT_EQ(kFileAttributeArchive, one.attributes);
  EXPECT_EQ(kFileAttributeArchive, by_path.attributes);
}

TEST_F(NamesTest, NamesPathsAndDirectoriesHaveTheirLongest) {
  constexpr auto* kGap = "it knows no such limits";
  const Path prefix = u"\\\\?\\";
  EXPECT_EQ(0u, File(prefix + At(Path(255, u'n')), kGenericWrite, 0, kCreateNew).code);
  EXPECT_BUT_ON_WINE(File(prefix + At(Path(256, u'n')), kGenericWrite, 0, kCreateNew).code,
                     kErrorInvalidName, kErrorFileNotFound, "it asks the host");
  const struct {
    std::size_t length;
    std::uint32_t directory, file;
  } rows[] = {{247, 0, 0}, {248, 206, 0}, {259, 206, 0}, {260, 206, kErrorPathNotFound}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.length);
    const Path file = At(Path(row.length - root().size() - 1, u'f'));
    const Path directory = At(Path(row.length - root().size() - 1, u'd'));
    EXPECT_BUT_ON_WINE(Code(CreateDirectoryW(directory.c_str())), row.directory, 0u, kGap);
    EXPECT_EQ(0u, Code(CreateDirectoryW((prefix + directory + u"x").c_str())));
    EXPECT_EQ(0u, File(prefix + file, kGenericWrite, 0, kCreateNew).code);
    EXPECT_BUT_ON_WINE(File(file, kGenericWrite).code, row.file, 0u, kGap);
    EXPECT_BUT_ON_WINE(Code(~Attributes(file) != 0), row.file, 0u, kGap);
    EXPECT_BUT_ON_WINE(Rename(file, At(u"new")), row.file, 0u, kGap);
  }
}

}  // namespace
}  // namespace tolvarine::updater::contract
