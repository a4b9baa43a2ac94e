#include "files/fingerprint.h"

#include "files/file_fixture.h"
#include "text/fnv1a.h"

namespace tolvarine::updater {
namespace {

const Path kFile = u"C:\\d\\file";

class Fingerprint : public FileFixture {
 protected:
  Fingerprint() { computer.disk.WriteFile(kFile, "abc"); }

  static std::string Verify(const Path& path, std::uint64_t size, std::uint64_t hash) {
    return Thrown([&] { VerifyFileFingerprint(path, size, hash, "Baseline backup"); });
  }
};

TEST_F(Fingerprint, EveryByteCountsThroughLinksAndBesideWriters) {
  computer.disk.MakeSymbolicLink(u"C:\\link", kFile, false);
  const auto writer = computer.disk.Hold(kFile, platform::kGenericWrite, platform::kFileShareAll);
  for (const auto& [size, hash] : std::initializer_list<std::pair<std::size_t, std::uint64_t>>{
           {0, 0xcbf29ce484222325}, {65536, 0x1f0c0019bbd72325}, {65537, 0x98876fba2e90ec8c}}) {
    computer.disk.WriteFile(kFile, std::string(size, 'a'));
    EXPECT_EQ(Fnv1aOfFile(u"C:\\link"), hash) << size;
  }
  computer.disk.Release(writer);
}

TEST_F(Fingerprint, AFileIsVerifiedByKindSizeAndHashInThatOrder) {
  const std::string failed = "runtime: Baseline backup failed verification: C:\\d";
  EXPECT_EQ(Verify(kFile, 3, Fnv1a64("abc")), "done");
  EXPECT_EQ(Verify(kFile, 3, 0), failed + "\\file");
  EXPECT_EQ(Verify(u"C:\\d", 0, Fnv1a64("")), failed);
  EXPECT_EQ(Verify(u"C:\\d\\no", 0, Fnv1a64("")), failed + "\\no");
  EXPECT_EQ(Verify(u"C:\\\u0141", 0, 0), "system 1113: *");
  EXPECT_EQ(Count(Call::WfsOpen, [] { Verify(kFile, 4, Fnv1a64("abc")); }), 0) << "not read";
  Inject(Call::GetFileAttributesExW, 5, {}, 2);
  EXPECT_EQ(Verify(kFile, ~std::uint64_t{0}, Fnv1a64("abc")), failed + "\\file");
  Inject(Call::WfsOpen, 5);
  EXPECT_EQ(Verify(kFile, 3, 0), "runtime: Could not open file for hashing: C:\\d\\file");
  Inject(Call::Fread, 5);
  EXPECT_EQ(Verify(kFile, 3, 0), "runtime: Could not hash file: C:\\d\\file");
}

}  // namespace
}  // namespace tolvarine::updater
