// Volumes, and the identity of files.

#include "system/volumes.h"

#include "contract/fixture.h"

namespace tolvarine::updater::contract {
namespace {

constexpr std::uint32_t kErrorDirNotRoot = 144;
constexpr std::uint32_t kErrorFilenameExcedRange = 206;

using VolumesTest = ContractTest;

std::uint32_t FreeSpaceCode(const Path& directory, std::uint64_t* free) {
  return Code(GetDiskFreeSpaceExW(directory.c_str(), free));
}

// The root, or the code.
Path VolumeRoot(const Path& path, std::uint32_t size = 260) {
  std::u16string root(size, u'\0');
  if (!GetVolumePathNameW(path.c_str(), root.data(), size)) return {};
  return root.c_str();
}

FileIdentity Identity(const Path& path) {
  const File file(Open(path, kFileReadAttributes));
  FileIdentity identity;
  EXPECT_EQ(0u, Code(GetFileInformationByHandle(file.handle, &identity))) << Shown(path);
  return identity;
}

TEST_F(VolumesTest, FreeSpaceIsThatOfADirectory) {
  Put(At(u"file"), "x");
  std::uint64_t free = 0;
  EXPECT_EQ(0u, FreeSpaceCode(root(), &free));
  EXPECT_LT(0u, free);
  EXPECT_EQ(0u, FreeSpaceCode(root() + u"\\", &free));
  EXPECT_NE(0u, FreeSpaceCode(At(u"none"), &free));
  EXPECT_EQ(kErrorDirectory, FreeSpaceCode(At(u"file"), &free));
}

TEST_F(VolumesTest, APathLeadsToItsVolumeWhetherOrNotItExists) {
  const Path volume = root().substr(0, 3);
  EXPECT_EQ(volume, VolumeRoot(root()));
  EXPECT_EQ(volume, VolumeRoot(At(u"none\\deeper\\")));
  EXPECT_EQ(volume, VolumeRoot(volume));
  EXPECT_EQ(u"\\\\?\\" + volume, VolumeRoot(u"\\\\?\\" + root()));
  EXPECT_EQ(volume, VolumeRoot(root(), 4));
  EXPECT_EQ(u"", VolumeRoot(root(), 2));
  EXPECT_EQ(kErrorFilenameExcedRange, GetLastError());
}

TEST_F(VolumesTest, AVolumeNamesItsFileSystemAndItsFilesShareItsNumber) {
  const Path volume = VolumeRoot(root());
  const auto code = [](const Path& path) {
    return Code(GetVolumeInformationW(path.c_str(), nullptr, 0, nullptr));
  };
  char16_t file_system[32] = {};
  std::uint32_t serial = 0;
  EXPECT_EQ(0u, Code(GetVolumeInformationW(volume.c_str(), file_system, 32, &serial)));
  EXPECT_EQ(u"NTFS", Path(file_system));
  EXPECT_EQ(serial, Identity(root()).volume_serial_number);
  EXPECT_EQ(0u, code(volume));
  EXPECT_EQ(kErrorDirNotRoot, code(root() + u"\\"));
}

TEST_F(VolumesTest, AFileKeepsItsIdentityUnderItsNames) {
  Put(At(u"a"), "content");
  Put(At(u"b"), "content");
  MakeHardLink(At(u"a"), At(u"c"));
  const std::uint64_t index = Identity(At(u"a")).file_index;
  EXPECT_EQ(index, Identity(At(u"c")).file_index);
  EXPECT_NE(index, Identity(At(u"b")).file_index);
  EXPECT_NE(index, Identity(root()).file_index);
  EXPECT_EQ(0u, Rename(At(u"a"), At(u"b")));
  EXPECT_EQ(index, Identity(At(u"b")).file_index);
}

}  // namespace
}  // namespace tolvarine::updater::contract
