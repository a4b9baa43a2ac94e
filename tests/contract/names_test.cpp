// Names: renaming, deletion, copying, searches, and the longest names.

#include <vector>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

using Names = std::vector<Path>;

class NamesTest : public ContractTest {
 protected:
  // What a search in the directory finds, in its order; `act` runs after each name.
  static Names Listed(const Path& directory, const std::function<void(const FindData&)>& act = {}) {
    FindData data;
    const Handle find = FindFirstFileExW((directory + u"\\*").c_str(), kFindExInfoBasic, &data,
                                         kFindExSearchNameMatch, 0);
    Names names;
    do {
      names.push_back(data.name);
      if (act) act(data);
    } while (FindNextFileW(find, &data));
    EXPECT_EQ(GetLastError(), kErrorNoMoreFiles);
    EXPECT_EQ(Code(FindNextFileW(find, &data)), kErrorNoMoreFiles);
    EXPECT_TRUE(FindClose(find));
    return names;
  }
};

TEST_F(NamesTest, ARenameReplacesTheFileAndTakesTheNewSpelling) {
  Put(At(u"old"), "old");
  Put(At(u"new"), "new");
  MakeHardLink(At(u"old"), At(u"link"));
  EXPECT_EQ(Rename(At(u"new"), At(u"Old")), 0u);
  EXPECT_BUT_ON_WINE(kWine8And10, Listed(root()), (Names{u".", u"..", u"link", u"Old"}),
                     (Names{u".", u"..", u"link", u"old"}));
  EXPECT_EQ(Content(At(u"old")), "new");
  EXPECT_EQ(Content(At(u"link")), "old");
  EXPECT_EQ(Rename(At(u"old"), At(u"OLD")), 0u);
  EXPECT_BUT_ON_WINE(kWine8And10, Listed(root()).back(), u"OLD", u"old");
}

TEST_F(NamesTest, AMarkedFileIsDeletedWithItsLastHandle) {
  Put(At(u"file"), "content");
  File reader(At(u"file"), kGenericRead);
  EXPECT_EQ(Mark(At(u"file")), 0u);
  EXPECT_EQ(Read(reader.handle, 100), "content");
  EXPECT_EQ(Listed(root()), (Names{u".", u"..", u"file"}));
  reader.Close();
  EXPECT_EQ(Listed(root()), (Names{u".", u".."}));
}

TEST_F(NamesTest, APosixDeletionAndDeleteFileWRemoveTheNameAtOnce) {
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
  EXPECT_BUT_ON_WINE(kWine8, remove(0), kErrorAccessDenied, kErrorInvalidParameter);
  EXPECT_BUT_ON_WINE(kWine8, remove(kFileDispositionIgnoreReadonly), 0u, kErrorInvalidParameter);
  EXPECT_TRUE(DeleteFileW(At(u"plain").c_str()));
  EXPECT_EQ(Read(reader.handle, 100), "content");
  EXPECT_EQ(Read(other_reader.handle, 100), "content");
  EXPECT_BUT_ON_WINE(kWine8, Content(At(u"read-only")), "code 2", "content");
  EXPECT_BUT_ON_WINE(kWine8And10, Content(At(u"plain")), "code 2", "content");
}

TEST_F(NamesTest, AMarkNeedsAnEmptyDirectoryOrAWritableFile) {
  constexpr std::uint32_t kReadonlyArchive = kFileAttributeReadonly | kFileAttributeArchive;
  const Path file = At(u"directory\\file");
  CreateDirectoryW(At(u"directory").c_str());
  Put(file, "content");
  EXPECT_EQ(Mark(At(u"directory")), kErrorDirNotEmpty);
  {
    const File opened(OpenForRemoval(file));
    const auto set_attributes = [&](std::uint32_t attributes) {
      EXPECT_TRUE(
          SetFileInformationByHandle(opened.handle, FileBasicInfo{.attributes = attributes}));
      return Attributes(file);
    };
    const auto mark = [&] {
      return Code(SetFileInformationByHandle(opened.handle, FileDispositionInfo{true}));
    };
    EXPECT_EQ(set_attributes(kReadonlyArchive), kReadonlyArchive);
    EXPECT_EQ(mark(), kErrorAccessDenied);
    // 0 leaves the attributes as they are.
    EXPECT_BUT_ON_WINE(kWine10, set_attributes(0), kReadonlyArchive, kFileAttributeArchive);
    EXPECT_EQ(set_attributes(kFileAttributeArchive), kFileAttributeArchive);
    EXPECT_EQ(mark(), 0u);
  }
  EXPECT_EQ(Mark(At(u"directory")), 0u);
  EXPECT_EQ(Attributes(At(u"directory")), kInvalidFileAttributes);
}

TEST_F(NamesTest, ACopyHasTheContentAndTheAttributes) {
  Put(At(u"source"), "content");
  Put(At(u"target"), "a longer text");
  const auto copy = [&](const char16_t* to, bool fail_if_exists = false) {
    return Code(CopyFileW(At(u"source").c_str(), At(to).c_str(), fail_if_exists));
  };
  EXPECT_EQ(copy(u"target", true), 80u);
  EXPECT_EQ(Content(At(u"target")), "a longer text");
  EXPECT_EQ(copy(u"target"), 0u);
  EXPECT_EQ(Content(At(u"target")), "content");
  EXPECT_EQ(copy(u"SOURCE"), kErrorSharingViolation);
  SetAttributes(At(u"source"), kFileAttributeReadonly);
  EXPECT_EQ(copy(u"new", true), 0u);
  EXPECT_EQ(Content(At(u"new")), "content");
  EXPECT_EQ(Attributes(At(u"new")) & kFileAttributeReadonly, kFileAttributeReadonly);
}

TEST_F(NamesTest, ASearchListsInTheOrderOfCapitalsWhileFilesAreDeleted) {
  const Names names = {u".",  u"..", u"A",  u"a.b", u"a1", u"b",      u"c c",   u"Z",
                       u"z~", u"[",  u"^_", u"_",   u"~",  u"\u00C4", u"\u00E9"};
  for (auto name = names.rbegin(); name->front() != u'.'; ++name) Put(At(*name), "");
  EXPECT_EQ(Listed(root(), [&](const FindData& data) { DeleteFileW(At(data.name).c_str()); }),
            names);
  EXPECT_EQ(Listed(root()), (Names{u".", u".."}));
  EXPECT_NE(Listed(root().substr(0, 2)).front(), u".") << "in a volume's root";
}

TEST_F(NamesTest, ARecordHasSpellingSizeAndAttributesOfAFileThatIsNotShared) {
  Put(At(u"Some File"), "content");
  const File held(At(u"some file"), kGenericRead, kFileShareNone);
  FindData one;
  EXPECT_TRUE(FindClose(FindFirstFileW(At(u"SOME FILE").c_str(), &one)));
  FileAttributeData by_path;
  EXPECT_TRUE(GetFileAttributesExW(At(u"some file").c_str(), &by_path));
  Listed(root(), [&](const FindData& data) {
    const bool file = data.name.front() != u'.';
    EXPECT_EQ(data.attributes, file ? one.attributes : kFileAttributeDirectory);
    EXPECT_EQ(data.size, file ? 7u : 0u);
  });
  EXPECT_EQ(one.name, u"Some File");
  EXPECT_EQ(one.size, 7u);
  EXPECT_EQ(by_path.size, 7u);
  EXPECT_EQ(one.attributes, kFileAttributeArchive);
  EXPECT_EQ(by_path.attributes, kFileAttributeArchive);
}

TEST_F(NamesTest, NamesPathsAndDirectoriesHaveTheirLongestLength) {
  const Path prefix = u"\\\\?\\";
  EXPECT_EQ(File(prefix + At(Path(255, u'n')), kGenericWrite, 0, kCreateNew).code, 0u);
  EXPECT_BUT_ON_WINE(kWine8And10,
                     File(prefix + At(Path(256, u'n')), kGenericWrite, 0, kCreateNew).code,
                     kErrorInvalidName, kErrorFileNotFound);
  const struct {
    std::size_t length;
    std::uint32_t directory, file;
  } rows[] = {{247, 0, 0}, {248, 206, 0}, {259, 206, 0}, {260, 206, kErrorPathNotFound}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.length);
    const Path file = At(Path(row.length - root().size() - 1, u'f'));
    const Path directory = At(Path(row.length - root().size() - 1, u'd'));
    EXPECT_BUT_ON_WINE(kWine8And10, Code(CreateDirectoryW(directory.c_str())), row.directory, 0u);
    EXPECT_EQ(Code(CreateDirectoryW((prefix + directory + u"x").c_str())), 0u);
    EXPECT_EQ(File(prefix + file, kGenericWrite, 0, kCreateNew).code, 0u);
    EXPECT_BUT_ON_WINE(kWine8And10, File(file, kGenericWrite).code, row.file, 0u);
    EXPECT_BUT_ON_WINE(kWine8And10, Code(~Attributes(file) != 0), row.file, 0u);
    EXPECT_BUT_ON_WINE(kWine8And10, Rename(file, At(u"new")), row.file, 0u);
  }
}

}  // namespace
}  // namespace tolvarine::updater::contract
