#include "files/locked_release_file.h"

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

const Path kFile = u"C:\\stage\\file";

class LockedRelease : public FileFixture {
 protected:
  LockedRelease() { computer.disk.WriteFile(kFile, "abc"); }

  static std::string Open(const Path& path) {
    return Thrown([&] { LockedReleaseFile file(path); });
  }
};

TEST_F(LockedRelease, NobodyWritesOrDeletesWhileItLives) {
  {
    const LockedReleaseFile file(kFile);
    EXPECT_EQ(file.path(), kFile);
    EXPECT_EQ(file.size(), 3);
    EXPECT_FALSE(CanOpen(kFile, platform::kGenericWrite));
    EXPECT_FALSE(CanOpen(kFile, platform::kDelete));
    EXPECT_TRUE(CanOpen(kFile, platform::kGenericRead, platform::kFileShareRead));
  }
  EXPECT_TRUE(CanOpen(kFile, platform::kGenericWrite, platform::kFileShareNone));
}

TEST_F(LockedRelease, OnlyAPlainFileWithOneNameThatNobodyWritesIsTaken) {
  computer.disk.MakeSymbolicLink(u"C:\\stage\\link", kFile, false);
  computer.disk.MakeReparsePoint(u"C:\\stage\\tagged", 0x9000001A, false);
  computer.disk.MakeJunction(u"C:\\stage\\junction", u"C:\\stage");
  computer.disk.WriteFile(u"C:\\stage\\twice", "abc");
  computer.disk.MakeHardLink(u"C:\\stage\\twice", u"C:\\elsewhere");
  const Path deep = u"C:\\" + Path(200, u'd') + u"\\" + Path(60, u'f');
  computer.disk.WriteFile(u"\\\\?\\" + deep, "");
  const std::string not_plain = "runtime: Release source is not a regular non-reparse file: ";
  const std::pair<Path, std::string> table[] = {
      {u"C:\\stage\\link", not_plain + "C:\\stage\\link"},
      {u"C:\\stage\\tagged", not_plain + "C:\\stage\\tagged"},
      {u"C:\\stage\\twice",
       "runtime: Release source file has multiple hard links: C:\\stage\\twice"},
      {u"C:\\stage", "system 5: Could not lock release source: *"},
      {u"C:\\stage\\junction", "system 5: Could not lock release source: *"},  // A directory, too.
      {u"C:\\no", "system 2: Could not lock release source: *"},
      {deep, "system 3: Could not lock release source: *"},
  };
  for (const auto& [path, thrown] : table) EXPECT_EQ(Open(path), thrown);
  for (const std::uint32_t access : {platform::kGenericWrite, platform::kDelete}) {
    const auto held = computer.disk.Hold(kFile, access, platform::kFileShareAll);
    EXPECT_EQ(Open(kFile), "system 32: Could not lock release source: *");
    computer.disk.Release(held);
  }
  computer.disks.volume(u'C').attribute_tags = false;  // As on FAT.
  EXPECT_EQ(Open(kFile), "system 87: Could not inspect release source: *");
}

TEST_F(LockedRelease, EachStepHasItsMessageAndLeavesNothingOpen) {
  const std::pair<Call, std::string> table[] = {
      {Call::CreateFileW, "system 5: Could not lock release source: *"},
      {Call::GetFileInformationByHandleEx, "system 5: Could not inspect release source: *"},
      {Call::GetFileInformationByHandle, "system 5: Could not inspect release source links: *"},
      {Call::GetFileSizeEx, "system 5: Could not read release source size: *"},
      {Call::BCryptOpenAlgorithmProvider, "runtime: Could not initialize SHA-256"},
      {Call::BCryptGetProperty, "runtime: Could not initialize SHA-256"},
      {Call::BCryptCreateHash, "runtime: Could not initialize SHA-256"},
      {Call::ReadFile, "system 5: Could not hash release source: *"},
      {Call::BCryptHashData, "runtime: Could not hash release source"},
      {Call::BCryptFinishHash, "runtime: Could not hash release source"},
      {Call::SetFilePointerEx, "system 5: Could not rewind release source: *"}};
  for (const auto& [call, thrown] : table) {
    const bool hashing = thrown.starts_with("runtime");
    Inject(call, hashing ? 0xC0000022 : 5);
    EXPECT_EQ(Thrown([] { return Sha256OfLockedFile(LockedReleaseFile(kFile)); }),
              thrown + (hashing ? " (BCrypt status -1073741790)" : ""))
        << CallName(call);
    EXPECT_EQ(computer.objects().open_hashes() + computer.files().open_handles(), 0u);
  }
}

TEST_F(LockedRelease, TheWholeFileIsHashedAndCanBeReadAgain) {
  const std::pair<std::size_t, std::string> table[] = {
      {0, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {1, "ca978112ca1bbdcafac231b39a23dc4da786eff8147c4e72b9807785afee48bb"},
      {65536, "bf718b6f653bebc184e1479f1935b8da974d701b893afcf49e701f3e2f9f9c5a"},
      {65537, "008ffc88d3c96a9f307524eb361e47c5222a887fc45fa0c1fb8d429c5c23b430"},
  };
  for (const auto& row : table) {
    const auto& size = row.first;
    const auto& digest = row.second;
    computer.disk.WriteFile(kFile, std::string(size, 'a'));
    const LockedReleaseFile file(kFile);
    computer.calls.ClearFaults();
    EXPECT_EQ(Sha256OfLockedFile(file), digest) << size;
    // A read that moves less than was asked for is not the end.
    computer.calls.Inject({.call = Call::ReadFile, .times = kAlways, .partial = 40'000});
    EXPECT_EQ(Sha256OfLockedFile(file), digest) << size;
    EXPECT_TRUE(MatchesRelease(file, size, digest));
    EXPECT_FALSE(MatchesRelease(file, size, std::string(64, '0')));
    EXPECT_EQ(Count(Call::ReadFile, [&] { EXPECT_FALSE(MatchesRelease(file, size + 1, digest)); }),
              0);
  }
}

}  // namespace
}  // namespace tolvarine::updater
