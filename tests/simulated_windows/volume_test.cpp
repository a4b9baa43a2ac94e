#include "simulated_windows/volume.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "support/text_printers.h"

namespace tolvarine::updater::simulated {
namespace {

using Files = std::map<std::u16string, std::string>;
using Survival = std::map<NodeId, ContentSurvival>;

NodeId Make(Volume& volume, const std::u16string& name, std::string_view content) {
  const NodeId id = volume.Create({.directory = kRootNode, .spelling = name});
  volume.Write(id, 0, content);
  return id;
}

// The files on a copy of the volume after a power cut.
Files After(Volume volume, std::size_t changes, const Survival& survival = {}) {
  volume.CutPower(changes, survival);
  EXPECT_TRUE(volume.unforced().empty());
  EXPECT_TRUE(volume.UnflushedFiles().empty());
  Files files;
  for (const auto& [folded, entry] : volume.node(kRootNode).entries) {
    files[entry.spelling] = *volume.node(entry.node).content;
  }
  return files;
}

TEST(DiskTest, AnyPrefixOfTheChangesSurvives) {
  Volume volume;
  const NodeId old = Make(volume, u"b", "old");
  volume.Settle();
  const NodeId fresh = Make(volume, u"a", "new");  // The name, then the size.
  volume.Apply(RenameChange{kRootNode, u"A", kRootNode, u"B"});
  volume.Apply(LinkChange{fresh, kRootNode, u"c"});
  volume.Apply(UnlinkChange{kRootNode, u"b"});
  volume.Apply(AttributesChange{fresh, 1});
  volume.Forget(old);
  const std::vector<Files> expected = {
      {{u"b", "old"}}, {{u"a", ""}, {u"b", "old"}},    {{u"a", "new"}, {u"b", "old"}},
      {{u"B", "new"}}, {{u"B", "new"}, {u"c", "new"}}, {{u"c", "new"}},
      {{u"c", "new"}}};
  ASSERT_EQ(volume.unforced().size() + 1, expected.size());
  for (std::size_t k = 0; k < expected.size(); ++k) {
    EXPECT_EQ(After(volume, k), expected[k]) << k;
  }
  volume.Force();
  EXPECT_EQ(After(volume, 0), expected.back());
}

TEST(DiskTest, UnflushedContentSurvivesBySectors) {
  const std::string a(kSectorSize, 'a');
  const std::string b(kSectorSize, 'b');
  const std::string zeros(kSectorSize, '\0');
  Volume volume;
  const NodeId id = Make(volume, u"f", a + a);
  volume.Flush(id);  // Forces the name, too.
  volume.Write(id, 0, b + b + b + "b");
  const Survival every_second = {{id, {{false, true}}}};
  EXPECT_EQ(After(volume, 1), (Files{{u"f", b + b + b + "b"}}));
  EXPECT_EQ(After(volume, 0), (Files{{u"f", b + b}}));  // Without the growth.
  EXPECT_EQ(After(volume, 1, every_second), (Files{{u"f", a + b + zeros + "b"}}));
  EXPECT_EQ(After(volume, 1, {{id, {{false}}}}), (Files{{u"f", a + a + zeros + '\0'}}));
  volume.Flush(id);
  EXPECT_EQ(After(volume, 0, {{id, {{false}}}}), (Files{{u"f", b + b + b + "b"}}));
}

TEST(DiskTest, TruncatedContentIsTheOldOneOrNoneOfIt) {
  Volume volume;
  const NodeId id = Make(volume, u"f", "old content");
  volume.Flush(id);
  volume.Resize(id, 0);
  volume.Write(id, 0, "new");
  const Survival lost = {{id, {{false}}}};
  EXPECT_EQ(After(volume, 0), (Files{{u"f", "old content"}}));
  EXPECT_EQ(After(volume, 1), (Files{{u"f", ""}}));
  EXPECT_EQ(After(volume, 2), (Files{{u"f", "new"}}));
  EXPECT_EQ(After(volume, 2, lost), (Files{{u"f", std::string(3, '\0')}}));
  volume.Force();
  EXPECT_EQ(After(volume, 0, lost), (Files{{u"f", std::string(3, '\0')}}));
}

// A handle can still write to the file, but nothing of that reaches the medium.
TEST(DiskTest, FileWithoutANameOutlivesAForceButNotACut) {
  Volume volume;
  const NodeId id = Make(volume, u"f", "content");
  volume.Settle();
  volume.Apply(UnlinkChange{kRootNode, u"f"});
  volume.Force();
  volume.Write(id, 0, "longer content");
  volume.Flush(id);
  EXPECT_EQ(*volume.node(id).content, "longer content");
  EXPECT_EQ(After(volume, 0), Files());
}

}  // namespace
}  // namespace tolvarine::updater::simulated
