// ECDSA on P-256 through the system's library. The vectors are those of RFC 6979, A.2.5, for
// SHA-256, and of DSSE, protocol 1.0.

#include "system/signatures.h"

#include <array>

#include "contract/fixture.h"
#include "text/hex.h"

namespace tolvarine::updater::contract {
namespace {

constexpr Status kStatusInvalidParameter = static_cast<Status>(0xC000000D);

struct Vector {
  std::string_view point;  // x and y.
  std::string_view digest;
  std::string_view signature;  // r and s.
};

constexpr std::string_view kRfcPoint =
    "60fed4ba255a9d31c961eb74c6356d68c049b8923b61fa6ce669622e60f29fb6"
    "7903fe1008b8bc99a41ae9e95628bc64f2f1b20c2d7e9f5177a3c294d4462299";

constexpr std::array<Vector, 3> kVectors{
    {{kRfcPoint,  // "sample"
      "af2bdbe1aa9b6ec1e2ade1d694f41fc71a831d0268e9891562113d8a62add1bf",
      "efd48b2aacb6a8fd1140dd9cd45e81d69d2c877b56aaf991c34d0ea84eaf3716"
      "f7cb1c942d657c41d436c7a1b6e29f65f3e900dbb9aff4064dc4ab2f843acda8"},
     {kRfcPoint,  // "test"
      "9f86d081884c7d659a2feaa0c55ad015a3bf4f1b2b0b822cd15d6c15b0f00a08",
      "f1abb023518351cd71d881567b1ea663ed3efcf6c5132b354f28d3b0b7d38367"
      "019f4113742a2b14bd25926b49c649155f267e60d3814b4c0cc84250e46f0083"},
     {"67cd390f77aa359cb08c2235f652270493a9ed832b0abcc01f70954c0390d238"
      "0c782bd54e269125a44f4433aff1432ce94e12bca73aa67ac80cea12608ddf74",
      // "DSSEv1 29 http://example.com/HelloWorld 11 hello world"
      "217751fac2c4f14edb2c9297fbc34abcb016ba88e74757e875ec4ac16fb6b6a1",
      "03726ab101ad56c2763b6c6aac8e487275e2a79193a09dc5f859d9f8ef3c4a3b"
      "51eab0c06a369b64a7222537d4887a893dc200ae21060074d57825235b624864"}}};

// The head in front of the coordinates.
std::string BlobOf(std::string_view point) {
  return DecodeHex("4543533120000000").value() + DecodeHex(point).value();
}

class SignaturesTest : public ContractTest {
 protected:
  SignaturesTest() { EXPECT_EQ(0, BCryptOpenAlgorithmProvider(&algorithm_, u"ECDSA_P256")); }
  ~SignaturesTest() override { EXPECT_EQ(0, BCryptCloseAlgorithmProvider(algorithm_)); }

  Status Import(const std::string& blob, KeyHandle* key) {
    return BCryptImportKeyPair(algorithm_, key, blob.data(),
                               static_cast<std::uint32_t>(blob.size()));
  }

  // What the import of a malformed blob answers. A key that is made nevertheless verifies nothing.
  Status Refusal(const std::string& blob) {
    KeyHandle key = 0;
    const Status status = Import(blob, &key);
    if (status != 0) return status;
    EXPECT_GT(0, Verify(key, Digest(0), Signature(0)));
    EXPECT_EQ(0, BCryptDestroyKey(key));
    return status;
  }

  static std::string Digest(std::size_t vector) {
    return DecodeHex(kVectors[vector].digest).value();
  }
  static std::string Signature(std::size_t vector) {
    return DecodeHex(kVectors[vector].signature).value();
  }

  static Status Verify(KeyHandle key, const std::string& digest, const std::string& signature) {
    return BCryptVerifySignature(key, digest.data(), static_cast<std::uint32_t>(digest.size()),
                                 signature.data(), static_cast<std::uint32_t>(signature.size()));
  }

  AlgorithmHandle algorithm_ = 0;
};

std::string Changed(std::string bytes, std::size_t at) {
  bytes[at] = static_cast<char>(bytes[at] ^ 1);
  return bytes;
}

TEST_F(SignaturesTest, APublishedSignatureVerifiesAndNoneWithAChangedByte) {
  for (std::size_t vector = 0; vector < kVectors.size(); ++vector) {
    SCOPED_TRACE(vector);
    KeyHandle key = 0;
    ASSERT_EQ(0, Import(BlobOf(kVectors[vector].point), &key));
    const std::string digest = Digest(vector);
    const std::string signature = Signature(vector);
    EXPECT_EQ(0, Verify(key, digest, signature));
    for (std::size_t i = 0; i < signature.size(); ++i) {
      EXPECT_EQ(kStatusInvalidSignature, Verify(key, digest, Changed(signature, i))) << i;
    }
    for (std::size_t i = 0; i < digest.size(); ++i) {
      EXPECT_EQ(kStatusInvalidSignature, Verify(key, Changed(digest, i), signature)) << i;
    }
    EXPECT_EQ(0, BCryptDestroyKey(key));
  }
}

TEST_F(SignaturesTest, NumbersOutOfRangeAndOtherSizesDoNotVerify) {
  KeyHandle key = 0;
  ASSERT_EQ(0, Import(BlobOf(kRfcPoint), &key));
  const std::string digest = Digest(0);
  const std::string signature = Signature(0);
  for (const char filler : {'\0', '\xFF'}) {
    EXPECT_EQ(kStatusInvalidSignature, Verify(key, digest, std::string(64, filler)));
  }
  for (const std::size_t size : {0, 32, 62, 63}) {
    EXPECT_GT(0, Verify(key, digest, signature.substr(0, size))) << size;
  }
  // An odd byte is dropped there.
  EXPECT_BUT_ON_WINE(kWine8And10, Verify(key, digest, signature + '\0') < 0, true, false);
  EXPECT_EQ(0, BCryptDestroyKey(key));
}

TEST_F(SignaturesTest, MalformedKeysAreRefused) {
  const std::string blob = BlobOf(kRfcPoint);
  EXPECT_EQ(kStatusInvalidParameter, Refusal(Changed(blob, 4))) << "another size of coordinates";
  EXPECT_EQ(kStatusInvalidParameter, Refusal(blob.substr(0, 71)));
  // A point that is not on the curve is imported there.
  EXPECT_BUT_ON_WINE(kWine8And10, Refusal(Changed(blob, 71)), kStatusInvalidParameter, 0);
  EXPECT_GT(0, Refusal(BlobOf(std::string(128, '0'))));
  EXPECT_GT(0, Refusal(Changed(blob, 0))) << "another magic number";
}

}  // namespace
}  // namespace tolvarine::updater::contract
