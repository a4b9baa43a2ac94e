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
    EXPECT_EQ(BCryptOpenAlgorithmProvider(&algorithm_, u"SHA256"), 0);
    EXPECT_EQ(BCryptGetProperty(algorithm_, u"ObjectLength", &length_, 4, &written), 0);
    EXPECT_EQ(written, 4u);
    object_.resize(length_);
  }
  ~HashingTest() override { EXPECT_EQ(BCryptCloseAlgorithmProvider(algorithm_), 0); }

  // The text is passed in pieces of this size.
  std::string Digest(std::string_view text, std::size_t piece) {
    HashHandle hash = 0;
    EXPECT_EQ(BCryptCreateHash(algorithm_, &hash, object_.data(), length_), 0);
    for (std::size_t at = 0; at < text.size(); at += piece) {
      const std::string_view part = text.substr(at, piece);
      EXPECT_EQ(BCryptHashData(hash, part.data(), static_cast<std::uint32_t>(part.size())), 0);
    }
    std::string digest(32, '\0');
    EXPECT_EQ(BCryptFinishHash(hash, digest.data(), 32), 0);
    EXPECT_EQ(BCryptDestroyHash(hash), 0);
    return digest;
  }

  AlgorithmHandle algorithm_ = 0;
  std::uint32_t length_ = 0;
  std::vector<unsigned char> object_;
};

TEST_F(HashingTest, DigestsAreThoseOfTheStandardForPiecesOfAnySize) {
  for (const std::size_t piece : {1, 61, 64, 65536}) {
    SCOPED_TRACE(piece);
    EXPECT_EQ(EncodeHex(Digest("abc", piece)),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    // The digest of the digests of 0 to 130 letters: each number of bytes in the last block.
    std::string digests;
    for (std::size_t size = 0; size <= 130; ++size) {
      digests += Digest(std::string(size, 'a'), piece);
    }
    EXPECT_EQ(EncodeHex(Digest(digests, piece)),
              "f908a43fc8456c583aacde0fb2627959f8513dc76d0c03979b7f945a7dd78f22");
  }
}

}  // namespace
}  // namespace tolvarine::updater::contract
