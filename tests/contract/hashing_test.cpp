// SHA-256 through the system's library.

#include "platform/hashing.h"

#include <vector>

#include "contract/fixture.h"
#include "text/hex.h"

namespace tolvarine::updater::contract {
namespace {

class HashingTest : public ContractTest {
 protected:
  HashingTest() {
    std::uint32_t written = 0;
    EXPECT_EQ(0, BCryptOpenAlgorithmProvider(&algorithm_, u"SHA256"));
    EXPECT_EQ(0, BCryptGetProperty(algorithm_, u"ObjectLength", &length_, 4, &written));
    EXPECT_EQ(4u, written);
    object_.resize(length_);
  }
  ~HashingTest() override { EXPECT_EQ(0, BCryptCloseAlgorithmProvider(algorithm_)); }

  // The 32 bytes; the text is handed over in pieces of this size.
  std::string Digest(std::string_view text, std::size_t piece) {
    HashHandle hash = 0;
    EXPECT_EQ(0, BCryptCreateHash(algorithm_, &hash, object_.data(), length_));
    for (std::size_t at = 0; at < text.size(); at += piece) {
      const std::string_view part = text.substr(at, piece);
      EXPECT_EQ(0, BCryptHashData(hash, part.data(), static_cast<std::uint32_t>(part.size())));
    }
    std::string digest(32, '\0');
    EXPECT_EQ(0, BCryptFinishHash(hash, digest.data(), 32));
    EXPECT_EQ(0, BCryptDestroyHash(hash));
    return digest;
  }

  AlgorithmHandle algorithm_ = 0;
  std::uint32_t length_ = 0;
  std::vector<unsigned char> object_;
};

TEST_F(HashingTest, DigestsAreThoseOfTheStandardHoweverTheBytesCome) {
  for (const std::size_t piece : {1, 61, 64, 65536}) {
    SCOPED_TRACE(piece);
    EXPECT_EQ("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad",
              EncodeHex(Digest("abc", piece)));
    EXPECT_EQ("bf718b6f653bebc184e1479f1935b8da974d701b893afcf49e701f3e2f9f9c5a",
              EncodeHex(Digest(std::string(65536, 'a'), piece)));
    // Of texts of 0 to 130 letters, so of every rest of a block; the digest of the digests.
    std::string digests;
    for (std::size_t size = 0; size <= 130; ++size) {
      digests += Digest(std::string(size, 'a'), piece);
    }
    EXPECT_EQ("f908a43fc8456c583aacde0fb2627959f8513dc76d0c03979b7f945a7dd78f22",
              EncodeHex(Digest(digests, piece)));
  }
}

}  // namespace
}  // namespace tolvarine::updater::contract
