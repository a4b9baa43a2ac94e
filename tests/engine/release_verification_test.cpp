#include "engine/release_verification.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

TEST(ReleaseVerificationTest, TreeIsExactlyTheInventory) {
  constexpr char kMismatch[] = "Release source tree does not exactly match authenticated inventory";
  constexpr char kReparsePoint[] = "Release source contains a reparse point";
  constexpr char kDenied[] = "Access is denied.";
  using U = SimulatedUpdate;
  const Path readme = u"S\\readme.txt";
  const std::pair<Act, const char*> rows[] = {
      {Directory(u"S\\empty\\too"), ""},
      {Write(u"S\\more\\file.txt"), kMismatch},
      {[](U& u) { u.computer.disk.Rename(u.SourcePath(u"empty.dat"), u.SourcePath(u"Empty.dat")); },
       kMismatch},
      {Write(u"S\\empty.dat", "x"), kMismatch},
      {Write(readme, std::string(1800, 'x')),
       "Release source does not match authenticated inventory: |S\\readme.txt|"},
      {Link(u"S\\link", u"readme.txt"), kReparsePoint},
      {Both(Junction(u"S\\lib\\j", u"C:\\State"), Inject(Call::FindFirstFileExW, u"j\\*")),
       kReparsePoint},  // It is not entered.
      {Both(Junction(u"C:\\link", u"S"), [](U& u) { u.source = u"C:\\link"; }),
       "Release source root is a reparse point"},
      {[](U& u) { u.computer.disk.MakeReparsePoint(u.SourcePath(u"tag"), 0x80000017, false); },
       kReparsePoint},
      {[](U& u) {
         u.computer.disk.MakeSymbolicLink(u"\\\\?\\" + u.source + u"\\stop.", u"x", false);
       },
       "Unsafe release path"},  // The path comes before the attributes.
      {[](U& u) { u.computer.disk.MakeDirectory(u"\\\\?\\" + u.source + u"\\lib\\blank "); },
       "Unsafe release path"},
      {Both(Link(u"S\\link", u"readme.txt"),  // No link any more once its record is read.
            Before(Call::GetFileAttributesW, u"link", Both(Remove(u"S\\link"), Write(u"S\\link")))),
       "Release source contains a non-regular entry"},
      {Inject(Call::GetFileAttributesW, u"release"), kDenied},
      {Inject(Call::GetFileAttributesW, u"core.dll"), kDenied},
      {Inject(Call::FindFirstFileExW, u"ins\\*"), kDenied},
      {Inject(Call::FindNextFileW, u"", 4), kDenied},
      {[](U& u) { u.computer.disk.MakeHardLink(u.SourcePath(u"readme.txt"), u"C:\\other.txt"); },
       "Release source file has multiple hard links: |S\\readme.txt|"},
      {Before(Call::CreateFileW, u"readme.txt", Remove(readme)),
       "Could not lock release source: The system cannot find the file specified."},
      {Hold(readme, platform::kGenericWrite),
       "Could not lock release source: The process cannot access the file because it is being used "
       "by another process."}};
  ForEachRow(rows, [](const auto& row) {
    SimulatedUpdate update;
    row.first(update);
    const SourceInventory inventory = NormalizeSourceInventory(update.arguments.source_inventory);
    EXPECT_EQ(FailureOf([&] { VerifyReleaseTree(update.source, inventory); }),
              Text(update, row.second));
  });
}

TEST(ReleaseVerificationTest, VolumeWithoutALetterCanHoldTheRelease) {
  SimulatedUpdate update;
  simulated::Volume& volume = update.computer.disks.AddVolume(u'E');
  for (const auto& [path, content] : update.plan.release) {
    update.computer.disk.WriteFile(u"E:\\release\\" + path, content);
  }
  volume.drive = 0;
  update.source = u"\\\\?\\GLOBALROOT" + volume.device + u"\\RELEASE";
  const Ran ran = RunEngine(update);
  EXPECT_EQ(ran.status, TransactionPhase::Committed) << ran.error;
  EXPECT_EQ(update.Target(), update.Installed());
}

TEST(ReleaseVerificationTest, JournalMustComeFromTheseLists) {
  constexpr char kInventory[] = "Authenticated source inventory does not match transaction journal";
  constexpr char kDeletions[] =
      "Authenticated managed deletion list does not match transaction journal";
  using J = TransactionJournal;
  const std::pair<void (*)(J&), const char*> rows[] = {
      {[](J&) {}, ""},
      {[](J& j) { std::swap(j.entries[1], j.entries[2]); }, ""},
      {[](J& j) { j.entries[3].baseline_size = 9; }, ""},
      {[](J& j) { j.entries.pop_back(); }, kInventory},
      {[](J& j) { j.entries.erase(j.entries.begin()); }, kDeletions},
      {[](J& j) { j.entries[0].kind = JournalEntryKind::Install; }, kInventory},
      {[](J& j) { j.entries[1].path = u"never/here.txt"; }, kDeletions},
      {[](J& j) { j.entries[5].path = u"Readme.txt"; }, kInventory},
      {[](J& j) { ++j.entries[5].size; }, kInventory},
      {[](J& j) { j.entries[5].sha256[63] ^= 1; }, kInventory}};
  SimulatedUpdate update;
  LeftIn(TransactionPhase::Backup)(update);
  const SourceInventory inventory = NormalizeSourceInventory(update.arguments.source_inventory);
  const ManagedDeletionList deletions =
      NormalizeManagedDeletionList(update.arguments.managed_deletions, inventory);
  ForEachRow(rows, [&](const auto& row) {
    TransactionJournal record = SavedRecord(update);
    row.first(record);
    EXPECT_EQ(FailureOf([&] { VerifyListsAgainstJournal(inventory, deletions, record); }),
              row.second);
  });
}

}  // namespace
}  // namespace tolvarine::updater
