#include "release/signed_release.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "release/base64.h"
#include "release/describe.h"
#include "simulated_installation/simulated_installation.h"
#include "text/hex.h"

namespace tolvarine::updater::application {
namespace {

using simulated::PackagedRelease;
using simulated::SimulatedInstallation;

PublicKey KeyFromHex(std::string_view hex) {
  const std::string bytes = *DecodeHex(hex);
  PublicKey key;
  std::ranges::copy(bytes, key.point.begin());
  return key;
}

TEST(SignedRelease, PublishedSignaturesVerifyAndChangedOnesDoNot) {
  SimulatedInstallation fixture;
  // RFC 6979, A.2.5.
  const PublicKey rfc = KeyFromHex(
      "60FED4BA255A9D31C961EB74C6356D68C049B8923B61FA6CE669622E60F29FB6"
      "7903FE1008B8BC99A41AE9E95628BC64F2F1B20C2D7E9F5177A3C294D4462299");
  const std::string sample = *DecodeHex(
      "EFD48B2AACB6A8FD1140DD9CD45E81D69D2C877B56AAF991C34D0EA84EAF3716"
      "F7CB1C942D657C41D436C7A1B6E29F65F3E900DBB9AFF4064DC4AB2F843ACDA8");
  const std::string test = *DecodeHex(
      "F1ABB023518351CD71D881567B1EA663ED3EFCF6C5132B354F28D3B0B7D38367"
      "019F4113742A2B14BD25926B49C649155F267E60D3814B4C0CC84250E46F0083");
  EXPECT_TRUE(VerifySignature(rfc, "sample", sample));
  EXPECT_TRUE(VerifySignature(rfc, "test", test));
  EXPECT_FALSE(VerifySignature(rfc, "test", sample));
  EXPECT_FALSE(VerifySignature(rfc, "sample", sample + '\0'));
  EXPECT_FALSE(VerifySignature(PublicKey{}, "sample", sample));

  // The example of DSSE, protocol 1.0.
  const PublicKey dsse = KeyFromHex(
      "67cd390f77aa359cb08c2235f652270493a9ed832b0abcc01f70954c0390d238"
      "0c782bd54e269125a44f4433aff1432ce94e12bca73aa67ac80cea12608ddf74");
  const std::string message =
      PreAuthenticationEncoding("http://example.com/HelloWorld", "hello world");
  EXPECT_EQ(message, "DSSEv1 29 http://example.com/HelloWorld 11 hello world");
  EXPECT_TRUE(VerifySignature(
      dsse, message,
      *DecodeBase64("A3JqsQGtVsJ2O2xqrI5IcnXip5GToJ3F+FnZ+O88SjtR6rDAajabZKciJTfUiHqJPcIAriEGAHTVe"
                    "CUjW2JIZA==")));
}

TEST(SignedRelease, DerAndPemOfOpenSslAreReadAndNothingElseIs) {
  SimulatedInstallation fixture;
  const std::string der = fixture.key.Sign("message");
  EXPECT_TRUE(VerifySignature(fixture.keys[0], "message", RawSignatureFromDer(der)));
  for (std::size_t size = 0; size < der.size(); ++size) {
    EXPECT_THROW(static_cast<void>(RawSignatureFromDer(der.substr(0, size))), std::runtime_error);
  }
  EXPECT_THROW(static_cast<void>(RawSignatureFromDer(der + '\0')), std::runtime_error);
  // Negative, and with a zero byte that is not needed.
  for (const char* hex : {"3006020181020101", "300702020001020101",
                          "30060201000201"
                          "01"}) {
    EXPECT_THROW(static_cast<void>(RawSignatureFromDer(*DecodeHex(hex))), std::runtime_error)
        << hex;
  }
  const std::string pem = fixture.key.Pem();
  EXPECT_EQ(ParsePublicKey("a comment\n" + pem), fixture.keys[0]);
  for (const std::string& bad : {std::string(), pem.substr(0, pem.size() / 2), pem + pem,
                                 std::string(pem).replace(30, 1, "A")}) {
    EXPECT_THROW(static_cast<void>(ParsePublicKey(bad)), std::runtime_error) << bad;
  }
}

// --- Attacks -------------------------------------------------------------------------------------

// The words of the refusal; empty where the envelope is accepted.
std::string RefusalOf(const std::string& envelope, const std::vector<PublicKey>& keys) {
  try {
    static_cast<void>(VerifyRelease(envelope, keys));
    return {};
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return text.replace(at, from.size(), to);
}

constexpr char kPayload[] =
    R"({"format":1,"product":"Tolvarine","channel":"stable","version":"2.0","sequence":2,)"
    R"("files":[{"path":"Tolvarine.exe","size":1,"sha256":")"
    "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824"
    R"("}],"removed":[]})";

TEST(SignedRelease, AnEnvelopeIsRefusedUnlessOneKeyHasSignedExactlyThisPayload) {
  SimulatedInstallation fixture;
  const signing::SigningKey foreign;
  const std::string good = fixture.key.Envelope(kPayload);
  EXPECT_EQ(RefusalOf(good, fixture.keys), "");
  EXPECT_EQ(RefusalOf(good, {foreign.PublicPart(), fixture.keys[0]}), "");

  const std::string untrusted = "no signature is valid for the keys that are trusted.";
  EXPECT_TRUE(RefusalOf(good, {}).ends_with(untrusted));
  EXPECT_TRUE(RefusalOf(good, {foreign.PublicPart()}).ends_with(untrusted));
  EXPECT_TRUE(RefusalOf(foreign.Envelope(kPayload), fixture.keys).ends_with(untrusted));
  // What nobody has signed is not looked into.
  EXPECT_TRUE(RefusalOf(foreign.Envelope("no payload"), fixture.keys).ends_with(untrusted));
  const std::string other = EncodeBase64(Replaced(kPayload, "\"sequence\":2", "\"sequence\":3"));
  EXPECT_TRUE(
      RefusalOf(Replaced(good, EncodeBase64(kPayload), other), fixture.keys).ends_with(untrusted));

  struct Row {
    const char* name;
    std::string envelope;
    const char* words;
  };
  const std::vector<Row> rows = {
      {"another type", Replaced(good, "tolvarine.release", "tolvarine.other"), "not of the type"},
      {"no signatures", Replaced(good, "\"signatures\"", "\"others\""), "no signatures"},
      {"a name twice", Replaced(good, "{\"payload\"", "{\"payloadType\":\"x\",\"payload\""),
       "occurs twice"},
      {"not base64", Replaced(good, "\"payload\":\"", "\"payload\":\"*"), "payload is not base64"},
      {"deep nesting", std::string(100000, '['), "nested too deep"},
      {"not UTF-8", "{\"a\":\"\xff\"}", "not sound JSON"},
      {"too large", std::string(kEnvelopeByteLimit + 1, ' '), "too large"},
      {"empty", "", "not sound JSON"},
      {"no object", "[]", "not of the type"}};
  for (const Row& row : rows) {
    EXPECT_NE(RefusalOf(row.envelope, fixture.keys).find(row.words), std::string::npos)
        << row.name << ": " << RefusalOf(row.envelope, fixture.keys);
  }
  for (std::size_t size = 0; size + 2 < good.size(); size += 7) {
    EXPECT_NE(RefusalOf(good.substr(0, size), fixture.keys), "") << size;
  }
}

TEST(SignedRelease, ASignedDescriptionIsRefusedForWhateverTheUpdaterCouldNotInstall) {
  SimulatedInstallation fixture;
  const std::string digest = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824";
  const auto with_file = [&](const std::string& path) {
    return Replaced(kPayload, "}],",
                    "},{\"path\":\"" + path + "\",\"size\":0,\"sha256\":\"" + digest + "\"}],");
  };
  const auto with_removed = [&](const std::string& path) {
    return Replaced(kPayload, "\"removed\":[]", "\"removed\":[\"" + path + "\"]");
  };
  struct Row {
    std::string payload;
    const char* words;
  };
  const std::vector<Row> rows = {
      {Replaced(kPayload, "\"format\":1", "\"format\":2"), "format"},
      {Replaced(kPayload, "Tolvarine\"", "Other\""), "another product"},
      {Replaced(kPayload, "stable", "Stable"), "channel"},
      {Replaced(kPayload, "\"sequence\":2", "\"sequence\":0"), "sequence"},
      {Replaced(kPayload, "\"sequence\":2", "\"sequence\":9007199254740993"), "2^53"},
      {Replaced(kPayload, "\"sequence\":2", "\"sequence\":-1"), "2^53"},
      {Replaced(kPayload, "\"sequence\":2", "\"sequence\":2.0"), "2^53"},
      {Replaced(kPayload, "{\"format\"", "{\"extra\":1,\"format\""), "unknown member"},
      {Replaced(kPayload, "\"size\":1", "\"size\":\"1\""), "size is not of its type"},
      {Replaced(kPayload, "\"size\":1", "\"mode\":1,\"size\":1"), "exactly path, size and sha256"},
      {Replaced(kPayload, digest, digest.substr(1)), "64 lower-case digits"},
      {Replaced(kPayload, "Tolvarine.exe", "tool.exe"), "lacks Tolvarine.exe"},
      {with_file("TOLVARINE.EXE"), "occurs twice"},
      {with_file("tolvarine.exe/x"), "is a file and a directory"},
      {with_file("../x"), "cannot have the path"},
      {with_file("C:/x"), "cannot have the path"},
      {with_file("/x"), "cannot have the path"},
      {with_file("a/con.txt"), "cannot have the path"},
      {with_file("Log.txt"), "cannot have the path"},
      {with_file("a.tolvarine-update-new/b"), "cannot have the path"},
      {with_file(std::string(1025, 'a')), "cannot have the path"},
      {with_removed("tolvarine.exe"), "to be removed and is a file"},
      {with_removed("a\",\"A"), "to be removed twice"},
      {with_removed("log.txt"), "no file to be removed can have"}};
  for (const Row& row : rows) {
    const std::string refusal = RefusalOf(fixture.key.Envelope(row.payload), fixture.keys);
    EXPECT_NE(refusal.find(row.words), std::string::npos) << row.payload << "\n" << refusal;
  }
}

TEST(SignedRelease, TheSameDescriptionIsTheSameUpdateAndComesBackAsItWas) {
  SimulatedInstallation fixture;
  ReleaseDescription description = ParseDescription(kPayload);
  description.files.push_back({u"lib/\u00C4.dll", 5, description.files[0].sha256});
  description.removed = {u"b", u"A"};
  const std::string payload = SerializeDescription(description);
  const VerifiedRelease release = VerifyRelease(fixture.key.Envelope(payload), fixture.keys);
  EXPECT_EQ(release.id, VerifyRelease(fixture.key.Envelope(payload), fixture.keys).id);
  EXPECT_EQ(SerializeDescription(release.description), payload);
  EXPECT_EQ(release.description.files.back().path, u"Tolvarine.exe");
  EXPECT_EQ(release.description.removed, (std::vector<Path>{u"A", u"b"}));
}

TEST(SignedRelease, TheMakerIsToldEveryProblemAndTheMarginOfTheLists) {
  SimulatedInstallation fixture;
  fixture.computer.disk.WriteFile(u"C:\\R\\log.txt", "");
  fixture.computer.disk.WriteFile(u"C:\\R\\two.dll", "");
  fixture.computer.disk.MakeHardLink(u"C:\\R\\two.dll", u"C:\\R\\names.dll");
  const DescribedRelease bad = DescribeRelease(
      {.release = u"C:\\R", .channel = "stable", .version = "1", .sequence = 1, .earlier = {}});
  EXPECT_EQ(bad.problems.size(), 4u) << testing::PrintToString(bad.problems);

  const PackagedRelease first =
      fixture.Package(1, {{u"Tolvarine.exe", "1"}, {u"same", "s"}, {u"gone", "g"}});
  const PackagedRelease second = fixture.Package(2, {{u"Tolvarine.exe", "2"}, {u"same", "s"}});
  const DescribedRelease described = DescribeRelease({.release = second.package,
                                                      .channel = "stable",
                                                      .version = "2",
                                                      .sequence = 2,
                                                      .earlier = {first.release.description}});
  ASSERT_EQ(described.margins.size(), 1u);
  EXPECT_EQ(described.margins[0].files, 1u);
  EXPECT_EQ(described.margins[0].inventory_bytes,
            SerializeSourceInventory({second.release.description.files.back()}).size());
  EXPECT_EQ(described.margins[0].deletions, 1u);
  EXPECT_EQ(ParseDescription(described.payload).removed, (std::vector<Path>{u"gone"}));
}

}  // namespace
}  // namespace tolvarine::updater::application
