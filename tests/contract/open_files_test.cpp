// Sharing between open files, and the rights that each use needs.

#include <vector>

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

using OpenFilesTest = ContractTest;

constexpr std::uint32_t kErrorInvalidHandle = 6;

TEST_F(OpenFilesTest, TwoHandlesAreCompatibleIfEachSharesTheAccessOfTheOther) {
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
    uses.push_back({kFileReadAttributes, 0, shares});  // Compatible with all.
  }
  Put(At(u"file"), "content");
  for (const Use& first : uses) {
    const File held(At(u"file"), first.access, first.shares);
    ASSERT_EQ(held.code, 0u);
    for (const Use& second : uses) {
      const bool refused = first.needs != 0 && second.needs != 0 &&
                           ((second.needs & ~first.shares) | (first.needs & ~second.shares)) != 0;
      EXPECT_EQ(File(At(u"file"), second.access, second.shares).code,
                refused ? kErrorSharingViolation : 0)
          << std::hex << first.access << " sharing " << first.shares << ", then " << second.access
          << " sharing " << second.shares;
    }
  }
}

TEST_F(OpenFilesTest, ALockAppliesToAllNamesOfTheFile) {
  Put(At(u"file"), "content");
  File lock(At(u"file"), kGenericRead, kFileShareRead);
  FileAttributeTagInfo tag{.reparse_tag = 7};
  ByHandleFileInformation information;
  std::int64_t size = 0;
  EXPECT_TRUE(GetFileInformationByHandleEx(lock.handle, &tag));
  EXPECT_TRUE(GetFileInformationByHandle(lock.handle, &information));
  EXPECT_TRUE(GetFileSizeEx(lock.handle, &size));
  EXPECT_EQ(tag.attributes, kFileAttributeArchive);
  EXPECT_EQ(tag.reparse_tag, 0u);
  EXPECT_EQ(information.number_of_links, 1u);
  EXPECT_EQ(size, 7);
  MakeHardLink(At(u"file"), At(u"link"));
  EXPECT_TRUE(GetFileInformationByHandle(lock.handle, &information));
  EXPECT_EQ(information.number_of_links, 2u);
  EXPECT_EQ(File(At(u"link"), kGenericWrite).code, kErrorSharingViolation);
  EXPECT_EQ(Code(DeleteFileW(At(u"link").c_str())), kErrorSharingViolation);
  const Handle closed = lock.handle;
  lock.Close();
  EXPECT_EQ(File(At(u"link"), kGenericWrite).code, 0u);
  EXPECT_EQ(Code(GetFileSizeEx(closed, &size)), kErrorInvalidHandle);
  EXPECT_EQ(Code(CloseHandle(closed)), kErrorInvalidHandle);
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
    EXPECT_EQ(Code(ReadFile(file.handle, &byte, 1, &count)), row.read);
    EXPECT_EQ(Code(WriteFile(file.handle, &byte, 1, &count)), row.write);
    EXPECT_EQ(Code(FlushFileBuffers(file.handle)), row.flush);
    EXPECT_BUT_ON_WINE(
        kWine8And10,
        Code(SetFileInformationByHandle(file.handle, FileBasicInfo{.attributes = 0x20})),
        row.set_attributes, 0u);
    EXPECT_EQ(Code(SetFileInformationByHandle(file.handle, FileDispositionInfo{false})), row.mark);
  }
}

TEST_F(OpenFilesTest, AppendingWritesAtTheEndAlsoWhenOthersAppend) {
  Put(At(u"file"), "start ");
  const File one(At(u"file"), kFileAppendData, kFileShareAll, kOpenAlways);
  const File other(At(u"file"), kFileAppendData, kFileShareAll, kOpenAlways);
  Write(one.handle, "one ");
  Write(other.handle, "two ");
  Write(one.handle, "three");
  EXPECT_EQ(Content(At(u"file")), "start one two three");
}

TEST_F(OpenFilesTest, AFinalPathIsSpelledAsOnTheDisk) {
  const auto final_path = [](const Path& path, std::uint32_t flags = kVolumeNameDos) {
    const File file(Open(path, kFileReadAttributes));
    Path buffer(300, u'?');
    const std::uint32_t length = GetFinalPathNameByHandleW(file.handle, buffer.data(), 300, flags);
    // If the buffer is too small, the result is the size that is needed, with the zero.
    EXPECT_EQ(GetFinalPathNameByHandleW(file.handle, buffer.data(), length, flags), length + 1);
    EXPECT_EQ(GetFinalPathNameByHandleW(file.handle, buffer.data(), length + 1, flags), length);
    EXPECT_EQ(buffer[length], 0);
    return buffer.substr(0, length);
  };
  const Path prefix = u"\\\\?\\";
  CreateDirectoryW(At(u"Some Directory").c_str());
  Put(At(u"Some Directory\\\u00C4File.TXT"), "");
  const Path expected = prefix + At(u"Some Directory\\\u00C4File.TXT");
  EXPECT_EQ(final_path(At(u"SOME DIRECTORY/.\\\u00E4file.txt")), expected);
  EXPECT_EQ(final_path(prefix + At(u"some directory\\\u00E4fILE.txt")), expected);
  EXPECT_EQ(final_path(At(u"some directory\\")), prefix + At(u"Some Directory"));
  EXPECT_EQ(final_path(root().substr(0, 3)), prefix + root().substr(0, 3));
  const Path by_device = final_path(root(), kVolumeNameNt);
  EXPECT_TRUE(by_device.starts_with(u"\\Device\\")) << Shown(by_device);
  EXPECT_TRUE(by_device.ends_with(root().substr(2))) << Shown(by_device);
}

}  // namespace
}  // namespace tolvarine::updater::contract
