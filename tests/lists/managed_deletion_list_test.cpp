#include "lists/managed_deletion_list.h"

#include "lists/list_text_contract.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr char kMalformed[] = "Malformed serialized managed deletion list";

constexpr ListText<ManagedDeletionList> kDeletions = {ParseManagedDeletionList,
                                                      SerializeManagedDeletionList};

const std::string kExample = "D1\n62696e2f6f6c642e646c6c\n726561646d652e747874\n";

class DeletionText : public SimulatedFixture {};

std::string Line(std::string_view path) { return EncodeHex(path) + "\n"; }

TEST_F(DeletionText, ExampleIsReadAndWrittenByteForByte) {
  EXPECT_EQ(SerializeManagedDeletionList({u"readme.txt", u"bin\\old.dll"}), kExample);
  ManagedDeletionList read;
  EXPECT_TRUE(ParseManagedDeletionList(kExample, read, nullptr));
  EXPECT_EQ(read, (ManagedDeletionList{u"bin/old.dll", u"readme.txt"}));
}

TEST_F(DeletionText, EachRefusalHasItsText) {
  const std::string d1 = "D1\n";
  kDeletions.ExpectRefusals({
      // The executable is sorted like any other path.
      {"",
       {d1, d1 + Line("A") + Line("b"), d1 + Line("/a") + Line("a//b"),
        d1 + Line("tolvarine.exe") + Line("zzz"), d1 + Line(std::string(1024, 'a'))}},
      {kMalformed, {"D1", "I1\n", d1 + "\n", d1 + "61", d1 + "6\n", d1 + "61\r\n"}},
      {kBadUtf8, {d1 + Line("\xc3")}},
      {"Authenticated managed deletion list is malformed",
       {d1 + Line("a/../b"), d1 + Line(std::string(1025, 'a'))}},
      {"Authenticated managed deletion list contains duplicate paths",
       {d1 + Line("a") + Line("A")}},
      {"Serialized managed deletion list is not canonical",
       {d1 + Line("b") + Line("A"), d1 + "4A\n"}},
  });
}

TEST_F(DeletionText, LimitsAreExact) {
  const auto failure = [](const ManagedDeletionList& paths) {
    return FailureOf([&] { static_cast<void>(SerializeManagedDeletionList(paths)); });
  };
  ManagedDeletionList paths;
  for (char16_t unit = u'\u4e00'; paths.size() < 1000; ++unit) paths.emplace_back(2, unit);
  const std::string thousand = SerializeManagedDeletionList(paths);
  EXPECT_EQ(kDeletions.Refusal(thousand), "");
  EXPECT_EQ(kDeletions.Refusal(thousand + Line("\xf0\x90\x80\x80")),
            "Serialized managed deletion list has too many paths");
  paths.emplace_back(u"a");
  EXPECT_EQ(failure(paths), "Authenticated managed deletion list has too many paths");

  paths.clear();
  for (char16_t name = u'a'; name < u'l'; ++name) paths.emplace_back(1024, name);
  paths.emplace_back(1017, u'l');
  EXPECT_EQ(failure(paths), "Serialized managed deletion list exceeds 24 KiB") << "24577 bytes";
  paths.back().resize(1000);
  paths.emplace_back(16, u'm');
  const std::string fullest = SerializeManagedDeletionList(paths);
  EXPECT_EQ(fullest.size(), 24576u);
  EXPECT_EQ(kDeletions.Refusal(fullest), "");
  EXPECT_EQ(kDeletions.Refusal(fullest + "\n"), kMalformed);
}

TEST_F(DeletionText, NoFileOfTheReleaseIsDeleted) {
  const SourceInventory inventory = {{u"tolvarine.exe", 1, kAbc}, {u"a/b", 1, kAbc}};
  const auto failure = [&](const ManagedDeletionList& paths) {
    return FailureOf([&] { static_cast<void>(NormalizeManagedDeletionList(paths, inventory)); });
  };
  const std::string overlap = "Authenticated managed deletion list overlaps the release inventory";
  EXPECT_EQ(failure({u"Tolvarine.exe"}), overlap);
  EXPECT_EQ(failure({u"c", u"A\\b"}), overlap);
  EXPECT_EQ(failure({u"a", u"a/b/c"}), "");
}

}  // namespace
}  // namespace tolvarine::updater
