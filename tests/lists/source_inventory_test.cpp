#include "lists/source_inventory.h"

#include "lists/list_text_contract.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr char kMalformed[] = "Malformed serialized source inventory";
constexpr char kBadRow[] = "Authenticated source inventory is malformed";

constexpr ListText<SourceInventory> kInventory = {ParseSourceInventory, SerializeSourceInventory};

const std::string kHello = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824";
const std::string kExample =
    "I1\n62696e2f636f72652e646c6c:5:" + kHello + "\n746f6c766172696e652e657865:3:" + kAbc + "\n";

class InventoryText : public SimulatedFixture {};

std::string Row(std::string_view path, std::string_view size = "1",
                const std::string& digest = kAbc) {
  return EncodeHex(path) + ":" + std::string(size) + ":" + digest + "\n";
}

TEST_F(InventoryText, ExampleIsReadAndWrittenByteForByte) {
  const SourceInventory rows = {{u"tolvarine.exe", 3, kAbc}, {u"bin\\core.dll", 5, kHello}};
  EXPECT_EQ(SerializeSourceInventory(rows), kExample);
  SourceInventory read;
  EXPECT_TRUE(ParseSourceInventory(kExample, read, nullptr));
  EXPECT_EQ(read.at(0).path, u"bin/core.dll");
}

TEST_F(InventoryText, EachRefusalHasItsText) {
  const std::string i1 = "I1\n";
  kInventory.ExpectRefusals({
      {"", {i1 + Row("/a") + Row("a//b"), i1 + Row("a", "18446744073709551615")}},
      {"Authenticated source inventory is missing", {i1}},
      {kMalformed,
       {"", "I1", "i1\n" + Row("a"), i1 + "\n", kExample.substr(0, 188), kExample + "\n",
        i1 + "61\n", i1 + "61:\n", i1 + "61:1\n", i1 + "61:1:" + kAbc + ":\n",
        i1 + "6g:1:" + kAbc + "\n", i1 + Row("a", ""), i1 + Row("a", "18446744073709551616")}},
      {kBadUtf8, {i1 + Row("\xff")}},
      {kBadRow,
       {i1 + Row(""), i1 + Row("../a"), i1 + Row("a", "1", ""), i1 + Row("a", "1", kAbc + "0"),
        i1 + Row("a", "1", "BA" + kAbc.substr(2))}},
      {"Authenticated source inventory contains duplicate paths",
       {i1 + Row("a.txt") + Row("A.TXT")}},
      {"Serialized source inventory is not canonical",
       {i1 + Row("b") + Row("a"), i1 + Row("tolvarine.exe") + Row("zzz"),
        i1 + "4A:1:" + kAbc + "\n", i1 + Row("a", "01"), i1 + Row("a\\b")}},
  });
}

TEST_F(InventoryText, LimitsAreExact) {
  const auto failure = [](const SourceInventory& rows) {
    return FailureOf([&] { static_cast<void>(SerializeSourceInventory(rows)); });
  };
  const Path longest(512, u'\u00e9');  // Bytes count, not units.
  EXPECT_EQ(failure({{longest, 1, kAbc}}), "");
  EXPECT_EQ(failure({{longest + u"a", 1, kAbc}}), kBadRow);

  std::string thousand = "I1\n";
  SourceInventory rows;
  for (char16_t name = u'\u4e00'; rows.size() < 1000; ++name) {
    thousand += "61:0:\n";
    rows.push_back({Path(1, name), 1, kAbc});
  }
  EXPECT_EQ(kInventory.Refusal(thousand), kBadRow);
  EXPECT_EQ(kInventory.Refusal(thousand + "61:0:\n"),
            "Serialized source inventory has too many entries");
  EXPECT_EQ(NormalizeSourceInventory(rows).size(), 1000u);
  rows.push_back({u"b", 1, kAbc});
  EXPECT_EQ(failure(rows), "Authenticated source inventory has too many entries");

  rows.clear();
  for (char16_t name = u'a'; name < u'l'; ++name) rows.push_back({Path(1024, name), 1, kAbc});
  rows.push_back({Path(614, u'l'), 10, kAbc});
  const std::string fullest = SerializeSourceInventory(rows);
  EXPECT_EQ(fullest.size(), 24576u);
  EXPECT_EQ(kInventory.Refusal(fullest), "");
  EXPECT_EQ(kInventory.Refusal(fullest + "6"), kMalformed);
  rows.back().size = 100;
  EXPECT_EQ(failure(rows), "Serialized source inventory exceeds 24 KiB");
}

}  // namespace
}  // namespace tolvarine::updater
