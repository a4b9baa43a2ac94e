// What an open file keeps others from, and what can be done with it.

#include <vector>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

using OpenFilesTest = ContractTest;

constexpr std::uint32_t kErrorInvalidHandle = 6;

TEST_F(OpenFilesTest, TwoHandlesGoTogetherIfEachSharesWhatTheOtherDoes) {
  struct Use {
    std::uint32_t access, needs, shares;
  };
  std::vector<Use> uses;
  for (std::uint32_t shares = 0; shares <= kFileShareAll; ++shares) {
    uses.push_back({kGenericRead, kFileShareRead, shares});
    uses.push_back({kGenericWrite, kFileShareWrite, shares});
    uses.push_back({kFileAppendData, kFileShareWrite, shares});
    uses.push_back({kReadAndWrite, kShareReadAndWrite, shares});
    uses.push_back({kRemovalAccess, kFileShareDelete, shares});
    uses.push_back({kFileReadAttributes, 0, shares});  // Is not asked for, and asks for nothing.
  }
  Put(At(u"file"), "content");
  for (const Use& first : uses) {
    const File held(At(u"file"), first.access, first.shares);
    ASSERT_EQ(0u, held.code);
    for (const Use& second : uses) {
      const bool refused = first.needs != 0 && second.needs != 0 &&
                           ((second.needs & ~first.shares) | (first.needs & ~second.shares)) != 0;
      EXPECT_EQ(refused ? kErrorSharingViolation : 0,
                File(At(u"file"), second.access, second.shares).code)
          << std::hex << first.access << " sharing " << first.shares << ", then " << second.access
          << " sharing " << second.shares;
    }
  }
}

TEST_F(OpenFilesTest, ALockTellsOfTheFileAndHoldsForAllItsNames) {
  Put(At(u"file"), "content");
  File lock(At(u"file"), kGenericRead, kFileShareRead);
  FileAttributeTagInfo tag{.reparse_tag = 7};
  ByHandleFileInformation information;
  std::int64_t size = 0;
  EXPECT_TRUE(GetFileInformationByHandleEx(lock.handle, &tag));
  EXPECT_TRUE(GetFileInformationByHandle(lock.handle, &information));
  EXPECT_TRUE(GetFileSizeEx(lock.handle, &size));
  EXPECT_EQ(kFileAttributeArchive, tag.attributes);
  EXPECT_EQ(0u, tag.reparse_tag);
  EXPECT_EQ(1u, information.number_of_links);
  EXPECT_EQ(7, size);
  MakeHardLink(At(u"file"), At(u"link"));
  EXPECT_TRUE(GetFileInformationByHandle(lock.handle, &information));
  EXPECT_EQ(2u, information.number_of_links);
  EXPECT_EQ(kErrorSharingViolation, File(At(u"link"), kGenericWrite).code);
  EXPECT_EQ(kErrorSharingViolation, Code(DeleteFileW(At(u"link").c_str())));
  const Handle closed = lock.handle;
  lock.Close();
  EXPECT_EQ(0u, File(At(u"link"), kGenericWrite).code);
  EXPECT_EQ(kErrorInvalidHandle, Code(GetFileSizeEx(closed, &size)));
  EXPECT_EQ(kErrorInvalidHandle, Code(CloseHandle(closed)));
}

TEST_F(OpenFilesTest, EveryUseNeedsItsRight) {
  Put(At(u"file"), "content");
  const struct {
    std::uint32_t access, read, write, flush, set_attributes, mark;
  } rows[] = {{kGenericRead, 0, 5, 5, 5, 5},
              {kGenericWrite, 5, 0, 0, 0, 5},
              {kFileAppendData, 5, 0, 0, 5, 5},
              {kDelete, 5, 5, 5, 5, 0},
              {kRemovalAccess, 5, 5, 5, 0, 0}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.access);
    const File file(At(u"file"), row.access);
    char byte = 'x';
    std::uint32_t count = 0;
    EXPECT_EQ(row.read, Code(ReadFile(file.handle, &byte, 1, &count)));
    EXPECT_EQ(row.write, Code(WriteFile(file.handle, &byte, 1, &count)));
    EXPECT_EQ(row.flush, Code(FlushFileBuffers(file.handle)));
    EXPECT_BUT_ON_WINE(
        Code(SetFileInformationByHandle(file.handle, FileBasicInfo{.attributes = 0x20})),
        row.set_attributes, 0u, "it sets attributes through any handle");
    EXPECT_EQ(row.mark, Code(SetFileInformationByHandle(file.handle, FileDispositionInfo{false})));
  }
}

TEST_F(OpenFilesTest, AppendingGoesToTheEndWhoeverElseWrites) {
  Put(At(u"file"), "start ");
  const File one(At(u"file"), kFileAppendData, kFileShareAll, kOpenAlways);
  const File other(At(u"file"), kFileAppendData, kFileShareAll, kOpenAlways);
  Write(one.handle, "one ");
  Write(other.handle, "two ");
  Write(one.handle, "three");
  EXPECT_EQ("start one two three", Content(At(u"file")));
}

TEST_F(OpenFilesTest, AFinalPathIsSpelledAsOnTheDisk) {
  const auto final_path = [](const Path& path, std::uint32_t flags = kVolumeNameDos) {
    const File file(Open(path, kFileReadAttributes));
    Path buffer(300, u'?');
    const std::uint32_t length = GetFinalPathNameByHandleW(file.handle, buffer.data(), 300, flags);
    // Too little room is answered by what is needed, which counts the zero.
    EXPECT_EQ(length + 1, GetFinalPathNameByHandleW(file.handle, buffer.data(), length, flags));
    EXPECT_EQ(length, GetFinalPathNameByHandleW(file.handle, buffer.data(), length + 1, flags));
    EXPECT_EQ(0, buffer[length]);
    return buffer.substr(0, length);
  };
  const Path prefix = u"\\\\?\\";
  CreateDirectoryW(At(u"Some Directory").c_str());
  Put(At(u"Some Directory\\\u00C4File.TXT"), "");
  const Path expected = prefix + At(u"Some Directory\\\u00C4File.TXT");
  EXPECT_EQ(expected, final_path(At(u"SOME DIRECTORY/.\\\u00E4file.txt")));
  EXPECT_EQ(expected, final_path(prefix + At(u"some directory\\\u00E4fILE.txt")));
  EXPECT_EQ(prefix + At(u"Some Directory"), final_path(At(u"some directory\\")));
  EXPECT_EQ(prefix + root().substr(0, 3), final_path(root().substr(0, 3)));
  const Path by_device = final_path(root(), kVolumeNameNt);
  EXPECT_TRUE(by_device.starts_with(u"\\Device\\")) << Shown(by_device);
  EXPECT_TRUE(by_device.ends_with(root().substr(2))) << Shown(by_device);
}

}  // namespace
}  // namespace tolvarine::updater::contract
