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
  // Also zero, no integer, three of them, a length in its long form, and 33 bytes.
  for (const std::string& hex :
       {std::string("3006020181020101"), std::string("300702020001020101"),
        std::string("3006020100020101"), std::string("30050200020101"),
        std::string("3009020101020101020101"), std::string("308106020101020101"),
        std::string("3006040101020101"), "3026022101" + std::string(64, '0') + "020101"}) {
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

  std::string many;
  for (int i = 0; i < 16; ++i) many += "{\"sig\":\"\"},";
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
      {"no object", "[]", "not of the type"},
      {"a name twice, deeper", Replaced(good, "{\"keyid\"", "{\"sig\":\"\",\"keyid\""),
       "occurs twice"},
      {"signatures that are no list",
       Replaced(good, "\"signatures\":[", "\"signatures\":1,\"x\":["), "no signatures"},
      {"a signature that is none", Replaced(good, "\"signatures\":[", "\"signatures\":[1,"),
       "sig is missing"},
      {"many signatures", Replaced(good, "\"signatures\":[", "\"signatures\":[" + many),
       "too many signatures"},
      {"unused bits", Replaced(good, "\"payload\":\"", "\"payload\":\"QR==\",\"x\":\""),
       "payload is not base64"}};
  for (const Row& row : rows) {
    EXPECT_NE(RefusalOf(row.envelope, fixture.keys).find(row.words), std::string::npos)
        << row.name << ": " << RefusalOf(row.envelope, fixture.keys);
  }
  // Any other byte anywhere, and any end: refused, or the same release.
  const std::u16string id = VerifyRelease(good, fixture.keys).id;
  for (std::size_t at = 0; at < good.size(); ++at) {
    EXPECT_TRUE(at + 2 >= good.size() || !RefusalOf(good.substr(0, at), fixture.keys).empty())
        << at;
    std::string changed = good;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    if (RefusalOf(changed, fixture.keys).empty()) {
      EXPECT_EQ(VerifyRelease(changed, fixture.keys).id, id) << changed;
    }
  }
}

// Whoever changes the hint, or adds signatures that nobody trusts, changes nothing.
TEST(SignedRelease, KeysAreTriedInTurnAndTheHintIsNotTrusted) {
  SimulatedInstallation fixture;
  const signing::SigningKey next;
  const std::string message = PreAuthenticationEncoding(kPayloadType, kPayload);
  const auto entry = [&](const signing::SigningKey& key, const std::string& hint) {
    return "{" + hint + "\"sig\":\"" + EncodeBase64(RawSignatureFromDer(key.Sign(message))) + "\"}";
  };
  const auto envelope = [&](const std::string& signatures) {
    return "{\"payloadType\":\"" + std::string(kPayloadType) + "\",\"payload\":\"" +
           EncodeBase64(kPayload) + "\",\"signatures\":[" + signatures + "]}";
  };
  const std::vector<PublicKey> both = {next.PublicPart(), fixture.keys[0]};
  const std::string foreign_hint = "\"keyid\":\"" + KeyIdOf(next.PublicPart()) + "\",";
  for (const std::string& signatures :
       {entry(fixture.key, ""), entry(fixture.key, foreign_hint),
        entry(fixture.key, "\"keyid\":7,"), entry(next, "") + "," + entry(fixture.key, ""),
        "{\"sig\":\"\"}," + entry(fixture.key, "")}) {
    EXPECT_EQ(RefusalOf(envelope(signatures), fixture.keys), "") << signatures;
    EXPECT_EQ(RefusalOf(envelope(signatures), both), "") << signatures;
  }
  const std::string own_hint = "\"keyid\":\"" + KeyIdOf(fixture.keys[0]) + "\",";
  EXPECT_NE(RefusalOf(envelope(entry(next, own_hint)), fixture.keys), "");
  EXPECT_NE(RefusalOf(envelope(""), fixture.keys), "");
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
      {with_removed("log.txt"), "no file to be removed can have"},
      {with_removed("lib\",\"x/../lib"), "no file to be removed can have"},
      {Replaced(with_file("lib/a"), "\"removed\":[]", "\"removed\":[\"LIB\"]"), "is a directory"},
      {with_file("log.txt/a"), "cannot have the path"},
      {with_file("a\\u0000b"), "cannot have the path"},
      {with_file("a\\\\..\\\\b"), "cannot have the path"},
      {Replaced(with_file("lib/a"), "},",
                "},{\"path\":\"LIB/b\",\"size\":0,\"sha256\":\"" + digest + "\"},"),
       "elsewhere"},
      {Replaced(kPayload, "\"size\":1", "\"size\":1,\"size\":1"), "\"size\" occurs twice"},
      {Replaced(kPayload, "\"sequence\":2", "\"sequence\":2,\"sequence\":3"),
       "\"sequence\" occurs twice"},
      {Replaced(with_file("a"), "\"size\":0", "\"size\":9007199254740992"), "too large"},
      {Replaced(kPayload, "\"removed\":[]", "\"removed\":[[]]"), "not a text"},
      {Replaced(kPayload, "\"size\":1", "\"size\":[[1]]"), "nested too deep"},
      {Replaced(kPayload, "\"version\":\"2.0\"", "\"version\":\"2\\u00e4\""), "printable"}};
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
  EXPECT_TRUE(described.margins[0].Fits());
  EXPECT_EQ(ParseDescription(described.payload).removed, (std::vector<Path>{u"gone"}));

  // A name that is used otherwise is not to be removed, and no update gets there.
  const PackagedRelease third = fixture.Package(3, {{u"Tolvarine.exe", "2"}, {u"SAME/a", "a"}});
  const DescribedRelease turned = DescribeRelease({.release = third.package,
                                                   .channel = "stable",
                                                   .version = "3",
                                                   .sequence = 3,
                                                   .earlier = {second.release.description}});
  EXPECT_EQ(ParseDescription(turned.payload).removed, std::vector<Path>());
  EXPECT_FALSE(turned.margins[0].Fits());
}

}  // namespace
}  // namespace tolvarine::updater::application
