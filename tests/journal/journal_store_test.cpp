#include "journal/journal_store.h"

#include <map>

#include "files/file_fixture.h"
#include "journal/journal_text.h"
#include "text/fnv1a.h"

namespace tolvarine::updater {
namespace {

const Path kDirectory = u"C:\\tx";

TransactionJournal Record(std::uint64_t generation, std::string error = {}) {
  TransactionJournal journal;
  journal.generation = generation;
  journal.phase = TransactionPhase::Backup;
  journal.target = u"C:\\Apps\\" + Path(500, u'a');  // More than a sector.
  journal.error = std::move(error);
  return journal;
}

std::string Slot(std::uint64_t generation, std::string error = {}) {
  return SerializeJournal(Record(generation, std::move(error)));
}

using Files = std::map<std::u16string, std::string>;

class JournalStore : public FileFixture {
 protected:
  // The directory holds these files and nothing else, all of them on the medium.
  void CreateFiles(const Files& files) {
    computer.disk.Remove(kDirectory);
    computer.disk.MakeDirectory(kDirectory);
    for (const auto& [name, content] : files)
      computer.disk.WriteFile(JoinPath(kDirectory, name), content);
    computer.disks.Settle();
  }

  // The directory as the save of `last`, an even number, left it, and a stale temporary.
  void SetUpAfter(std::uint64_t last) {
    Files files = {{u"journal.1.new", "stale"}};
    if (last > 0) files.insert({{u"journal.0", Slot(last)}, {u"journal.1", Slot(last - 1)}});
    CreateFiles(files);
  }

  // "none", "corrupt", or the generation and the error of the record that is found. A load changes
  // nothing.
  std::string Load() {
    const Files before = computer.disk.Tree(kDirectory);
    const JournalLoadResult result = LoadJournal(kDirectory);
    EXPECT_EQ(computer.disk.Tree(kDirectory), before);
    EXPECT_EQ(result.journal.has_value(), result.state == JournalLoadState::Loaded);
    if (result.journal) return std::to_string(result.journal->generation) + result.journal->error;
    return result.state == JournalLoadState::None ? "none" : "corrupt";
  }

  // What a load finds behind the save after `last`.
  void ExpectLoad(std::uint64_t last, bool saved) {
    const bool temporary = computer.disk.Exists(kDirectory + u"\\journal.1.new");
    const std::string first = temporary ? "corrupt" : "none";
    const std::string old = last == 0 ? first : std::to_string(last);
    EXPECT_EQ(Load(), saved ? std::to_string(last + 1) : old);
  }

  // What the next save throws, the generation that the record then has, and what it leaves of its
  // temporary.
  std::string Save(TransactionJournal journal) {
    const std::uint64_t last = journal.generation;
    const std::string thrown = Thrown([&] { SaveJournal(kDirectory, journal); });
    computer.calls.before_call = nullptr;  // What fails is part of the save, not of the load.
    ExpectLoad(last, thrown == "done");
    const auto left = computer.disk.ReadFile(kDirectory + u"\\journal.1.new");
    const std::string part = left == "stale" ? ", stale" : ", part";
    const std::string temporary = left == Slot(last + 1) ? ", whole" : part;
    return thrown + ", " + std::to_string(journal.generation) + (left ? temporary : "");
  }
};

TEST_F(JournalStore, TheNewestSoundSlotCounts) {
  std::string bad = FormatJournalBody(Record(4));
  bad.replace(bad.find("433a2f"), 6, "433aff");  // No UTF-8: the parse throws.
  bad += "checksum " + std::to_string(Fnv1a64(bad)) + "\n";
  const std::string noise = std::string(50'000'000, '\0') + "checksum 1\n";
  const std::pair<Files, std::string> table[] = {
      {{}, "none"},
      {{{u"x", ""}}, "corrupt"},
      {{{u"journal.0.new", Slot(2)}}, "corrupt"},
      {{{u"journal.0", Slot(4)}, {u"journal.1", Slot(3)}, {u"journal.0.new", Slot(6)}}, "4"},
      {{{u"journal.0", Slot(4) + "\n"}, {u"journal.1", Slot(3)}}, "3"},
      {{{u"journal.0", bad}, {u"journal.1", Slot(3)}}, "3"},
      {{{u"journal.0", noise}, {u"journal.1", Slot(3)}}, "3"},
      {{{u"journal.0\\x", ""}, {u"journal.1", Slot(3)}}, "3"},  // A directory in a slot's place.
      {{{u"journal.0", ""}, {u"journal.1", Slot(3).substr(1)}}, "corrupt"},
      {{{u"journal.0", Slot(5, "even")}, {u"journal.1", Slot(5, "odd")}}, "5even"},
      {{{u"journal.1", Slot(2)}}, "2"},  // The parity is the writer's affair.
      {{{u"journal.0", Slot(~std::uint64_t{0})}, {u"journal.1", Slot(1)}}, "18446744073709551615"},
  };
  for (const auto& [files, found] : table) {
    CreateFiles(files);
    EXPECT_EQ(Load(), found);
  }
}

TEST_F(JournalStore, OnlyAPlainDirectoryThatCanBeReadHoldsAJournal) {
  EXPECT_EQ(Load(), "none");
  SetUpAfter(4);
  EXPECT_EQ(FailingEachCall([] {}, [&] { return Load(); }), R"(
GetFileAttributesExW tx: corrupt
FindFirstFileExW *: corrupt
FindNextFileW: corrupt
FindNextFileW: corrupt
FindClose: 4
WfsOpen journal.0: 3
Fread journal.0: 3
Fclose journal.0: 4
WfsOpen journal.1: 4
Fread journal.1: 4
Fclose journal.1: 4
in peace: 4
)");
  for (const std::uint32_t code : {2u, 3u, 53u, 64u, 123u, 161u, 21u, 267u}) {
    Inject(Call::GetFileAttributesExW, code);
    EXPECT_EQ(Load(), code == 21 || code == 267 ? "corrupt" : "none") << code;
  }
  computer.disk.Rename(kDirectory, u"C:\\good");
  computer.disk.MakeSymbolicLink(kDirectory, u"C:\\good", true);
  EXPECT_EQ(Load(), "corrupt");
  computer.disk.Remove(kDirectory);
  computer.disk.MakeJunction(kDirectory, u"C:\\good");
  EXPECT_EQ(Load(), "corrupt");
  computer.disk.Remove(kDirectory);
  computer.disk.WriteFile(kDirectory, Slot(4));
  EXPECT_EQ(Load(), "corrupt");
}

TEST_F(JournalStore, SavesTakeTurnsAndLeaveNoTemporary) {
  TransactionJournal journal = Record(6);
  SetUpAfter(6);
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(computer.disk.Tree(kDirectory),
            (Files{{u"journal.0", Slot(6)}, {u"journal.1", Slot(7)}}));
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty()) << "not written through";
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(computer.disk.Tree(kDirectory),
            (Files{{u"journal.0", Slot(8)}, {u"journal.1", Slot(7)}}));
  journal.generation = ~std::uint64_t{0};
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(computer.disk.Tree(kDirectory),
            (Files{{u"journal.0", Slot(0)}, {u"journal.1", Slot(7)}}));
  EXPECT_EQ(Load(), "7");
}

TEST_F(JournalStore, AnyCallOfASaveThatFailsLeavesTheOldOrTheNewRecord) {
  // In the order of the steps; two of them wait for the disk.
  EXPECT_EQ(FailingEachCall([&] { SetUpAfter(4); }, [&] { return Save(Record(4)); }), R"(
CreateDirectoryW tx: filesystem 5: create_directories: *: "C:\tx", 4, stale
GetFileAttributesExW tx: filesystem 5: create_directories: *: "C:\tx", 4, stale
CreateFile2 journal.1.new: done, 5
SetFileInformationByHandle journal.1.new: done, 5
CloseHandle journal.1.new: done, 5
WfsOpen journal.1.new: runtime: Could not create transaction journal, 5
Fwrite journal.1.new: runtime: Could not write transaction journal, 5, part
Fflush journal.1.new: runtime: Could not write transaction journal, 5, part
Fclose journal.1.new: done, 5
CreateFileW journal.1.new: system 5: *, 5, whole
FlushFileBuffers journal.1.new: system 5: *, 5, whole
CloseHandle journal.1.new: done, 5
MoveFileExW journal.1.new: system 5: *, 5, whole
in peace: done, 5
)");
  FailingEachCall([&] { SetUpAfter(0); }, [&] { return Save(Record(0)); });
}

TEST_F(JournalStore, AFullDiskAndABadPathLeaveTheSlots) {
  SetUpAfter(4);
  computer.disks.volume(u'C').capacity = Slot(4).size() * 5 / 2;
  EXPECT_EQ(Save(Record(4)), "runtime: Could not write transaction journal, 5, part");
  TransactionJournal journal = Record(4);
  journal.target = u"C:\\\xd800";
  EXPECT_EQ(Save(journal), "system 1113: *, 5");
}

}  // namespace
}  // namespace tolvarine::updater
