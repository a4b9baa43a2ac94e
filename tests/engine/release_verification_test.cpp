#include "engine/release_verification.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

struct TreeCase {
  const char* name;
  Change change;
  const char* error;
};

std::vector<TreeCase> TreeCases() {
  static constexpr char kMismatch[] =
      "Release source tree does not exactly match authenticated inventory";
  static constexpr char kReparsePoint[] = "Release source contains a reparse point";
  static constexpr char kUnsafe[] = "Unsafe release path";
  static constexpr char kDenied[] = "Access is denied.";
  using U = SimulatedUpdate;
  const Path readme = u"S\\readme.txt";
  const Change other_case = [](U& u) {
    u.computer.disk.Rename(u.SourcePath(u"empty.dat"), u.SourcePath(u"Empty.dat"));
  };
  const Change unsafe_link = [](U& u) {
    u.computer.disk.MakeSymbolicLink(u"\\\\?\\" + u.source + u"\\stop.", u"x", false);
  };
  return {
      {"empty directory", Directory(u"S\\empty\\too"), ""},
      {"one file more", Write(u"S\\more\\file.txt"), kMismatch},
      {"another case", other_case, kMismatch},
      {"another size", Write(u"S\\empty.dat", "x"), kMismatch},
      {"other bytes", Write(readme, std::string(1800, 'x')),
       "Release source does not match authenticated inventory: |S\\readme.txt|"},
      {"junction, which is not entered",
       Both(Junction(u"S\\lib\\j", u"C:\\State"), Inject(Call::FindFirstFileExW, u"j\\*")),
       kReparsePoint},
      {"root is a junction",
       Both(Junction(u"C:\\link", u"S"), [](U& u) { u.source = u"C:\\link"; }),
       "Release source root is a reparse point"},
      {"reparse point that is no link",
       [](U& u) { u.computer.disk.MakeReparsePoint(u.SourcePath(u"tag"), 0x80000017, false); },
       kReparsePoint},

      {"unsafe directory",
       [](U& u) { u.computer.disk.MakeDirectory(u"\\\\?\\" + u.source + u"\\lib\\blank "); },
       kUnsafe},
      {"link that becomes a file after its record is read",
       Both(Link(u"S\\link", u"readme.txt"),
            Before(Call::GetFileAttributesW, u"link", Both(Remove(u"S\\link"), Write(u"S\\link")))),
       "Release source contains a non-regular entry"},
      {"attributes of the root", Inject(Call::GetFileAttributesW, u"release"), kDenied}

  };
}

TEST(ReleaseVerificationTest, TreeIsExactlyTheInventory) {
  ForEachCase(TreeCases(), [](const TreeCase& each) {
    SimulatedUpdate update;
    each.change(update);
    const SourceInventory inventory = NormalizeSourceInventory(update.arguments.source_inventory);
    EXPECT_EQ(FailureOf([&] { VerifyReleaseTree(update.source, inventory); }),
              ResolveIn(update, each.error));
  });
}

TEST(ReleaseVerificationTest, JournalMustComeFromTheseLists) {
  static constexpr char kInventory[] =
      "Authenticated source inventory does not match transaction journal";
  static constexpr char kDeletions[] =
      "Authenticated managed deletion list does not match transaction journal";
  using J = TransactionJournal;
  struct ListCase {
    const char* name;
    void (*edit)(J&);
    const char* error;
  };
  const ListCase cases[] = {
      {"kinds mixed", [](J& j) { std::swap(j.entries[1], j.entries[2]); }, ""},

      {"install missing", [](J& j) { j.entries.pop_back(); }, kInventory},
      {"deletion missing", [](J& j) { j.entries.erase(j.entries.begin()); }, kDeletions},
      {"another deletion", [](J& j) { j.entries[1].path = u"never/here.txt"; }, kDeletions},
      {"another case", [](J& j) { j.entries[5].path = u"Readme.txt"; }, kInventory},
      {"another size", [](J& j) { ++j.entries[5].size; }, kInventory},
      {"another digest", [](J& j) { j.entries[5].sha256[63] ^= 1; }, kInventory}};
  SimulatedUpdate update;
  LeftIn(TransactionPhase::Backup)(update);
  const SourceInventory inventory = NormalizeSourceInventory(update.arguments.source_inventory);
  const ManagedDeletionList deletions =
      NormalizeManagedDeletionList(update.arguments.managed_deletions, inventory);
  ForEachCase(cases, [&](const ListCase& each) {
    TransactionJournal record = SavedRecord(update);
    each.edit(record);
    EXPECT_EQ(FailureOf([&] { VerifyListsAgainstJournal(inventory, deletions, record); }),
              each.error);
  });
}

}  // namespace
}  // namespace tolvarine::updater
