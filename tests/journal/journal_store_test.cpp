#include "journal/journal_store.h"

#include <gtest/gtest.h>

#include <map>

#include "journal/journal_text.h"
#include "support/failure_of.h"
#include "support/simulated_fixture.h"
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

class JournalStore : public SimulatedFixture {
 protected:
  // The directory holds exactly these files, all of them on the medium.
  void CreateFiles(const Files& files) {
    computer.disk.Remove(kDirectory);
    computer.disk.MakeDirectory(kDirectory);
    for (const auto& [name, content] : files)
      computer.disk.WriteFile(JoinPath(kDirectory, name), content);
    computer.disks.Settle();
  }

  // The directory after the save of generation 4, with a stale temporary.
  void CreateSaved() {
    CreateFiles({{u"journal.0", Slot(4)}, {u"journal.1", Slot(3)}, {u"journal.1.new", "stale"}});
  }

  // "none", "corrupt", or the generation and the error of the record that is loaded. A load changes
  // nothing.
  std::string Load() {
    const Files before = computer.disk.Tree(kDirectory);
    const JournalLoadResult result = LoadJournal(kDirectory);
    EXPECT_EQ(computer.disk.Tree(kDirectory), before);
    EXPECT_EQ(result.journal.has_value(), result.state == JournalLoadState::Loaded);
    if (result.journal) return std::to_string(result.journal->generation) + result.journal->error;
    return result.state == JournalLoadState::None ? "none" : "corrupt";
  }
};

TEST_F(JournalStore, TheNewestValidSlotIsLoaded) {
  std::string bad = FormatJournalBody(Record(4));
  bad.replace(bad.find("433a2f"), 6, "433aff");  // Not UTF-8: the parser throws.
  bad += "checksum " + std::to_string(Fnv1a64(bad)) + "\n";
  const struct {
    const char* name;
    Files files;
    std::string loaded;
  } cases[] = {
      {"empty directory", {}, "none"},
      {"other file", {{u"x", ""}}, "corrupt"},
      {"temporary alone", {{u"journal.0.new", Slot(2)}}, "corrupt"},
      {"newer temporary",
       {{u"journal.0", Slot(4)}, {u"journal.1", Slot(3)}, {u"journal.0.new", Slot(6)}},
       "4"},
      {"text after the checksum", {{u"journal.0", Slot(4) + "\n"}, {u"journal.1", Slot(3)}}, "3"},
      {"path that is not UTF-8", {{u"journal.0", bad}, {u"journal.1", Slot(3)}}, "3"},
      {"directory as a slot", {{u"journal.0\\x", ""}, {u"journal.1", Slot(3)}}, "3"},
      {"no valid slot", {{u"journal.0", ""}, {u"journal.1", Slot(3).substr(1)}}, "corrupt"},
      {"equal generations", {{u"journal.0", Slot(5, "even")}, {u"journal.1", Slot(5)}}, "5even"},
      {"other parity", {{u"journal.1", Slot(2)}}, "2"}};
  for (const auto& [name, files, loaded] : cases) {
    CreateFiles(files);
    EXPECT_EQ(Load(), loaded) << name;
  }
}

TEST_F(JournalStore, OnlyAPlainDirectoryThatCanBeReadHoldsAJournal) {
  EXPECT_EQ(Load(), "none");
  CreateSaved();
  const std::pair<simulated::Fault, std::string> faults[] = {
      {{.call = Call::GetFileAttributesExW, .code = 53}, "none"},  // A lost network path.
      {{.call = Call::FindNextFileW}, "corrupt"},
      {{.call = Call::WfsOpen, .path_suffix = u"journal.0"}, "3"},
      {{.call = Call::Fread, .path_suffix = u"journal.0"}, "3"}};
  for (const auto& [fault, loaded] : faults) {
    computer.calls.ClearFaults();
    computer.calls.Inject(fault);
    EXPECT_EQ(Load(), loaded) << CallName(fault.call) << " " << fault.code;
  }
  computer.disk.Rename(kDirectory, u"C:\\good");
  computer.disk.MakeJunction(kDirectory, u"C:\\good");
  EXPECT_EQ(Load(), "corrupt") << "junction";
  computer.disk.Remove(kDirectory);
  computer.disk.WriteFile(kDirectory, Slot(4));
  EXPECT_EQ(Load(), "corrupt") << "file";
}

TEST_F(JournalStore, SavesAlternateAndLeaveNoTemporary) {
  TransactionJournal journal = Record(6);
  CreateFiles({{u"journal.0", Slot(6)}, {u"journal.1", Slot(5)}, {u"journal.1.new", "stale"}});
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(computer.disk.Tree(kDirectory),
            (Files{{u"journal.0", Slot(6)}, {u"journal.1", Slot(7)}}));
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(computer.disk.Tree(kDirectory),
            (Files{{u"journal.0", Slot(8)}, {u"journal.1", Slot(7)}}));
  journal.generation = ~std::uint64_t{0};
  SaveJournal(kDirectory, journal);
  EXPECT_EQ(Load(), "7") << "generation 0 is the older one";
}

// More than one block of the reader and of the stream's buffer, and no multiple of either.
TEST_F(JournalStore, LongJournalIsSavedAndLoadedWhole) {
  TransactionJournal journal = Record(0);
  for (char16_t i = 0; i < 1000; ++i) {
    journal.entries.push_back(
        {.path = Path(1, 0x4E00 + i) + Path(60, u'n'), .size = i, .sha256 = std::string(64, 'a')});
  }
  SaveJournal(kDirectory, journal);
  const std::string text = SerializeJournal(journal);
  ASSERT_GT(text.size(), 3u * 65536);
  EXPECT_EQ(computer.disk.ReadFile(kDirectory + u"\\journal.1"), text);
  const JournalLoadResult loaded = LoadJournal(kDirectory);
  ASSERT_TRUE(loaded.journal.has_value());
  EXPECT_EQ(SerializeJournal(*loaded.journal), text);
}

// The generation is incremented, unless the directory cannot be made.
TEST_F(JournalStore, FailingSaveKeepsBothSlots) {
  const struct {
    simulated::Fault fault;
    std::string error;
    std::uint64_t generation;
  } cases[] = {{{.call = Call::GetFileAttributesExW},
                "create_directories: Access is denied.: \"C:\\tx\"",
                4},
               {{.call = Call::WfsOpen}, "Could not create transaction journal", 5},
               {{.call = Call::Fwrite, .partial = 100}, "Could not write transaction journal", 5},
               {{.call = Call::FlushFileBuffers}, "Access is denied.", 5},
               {{.call = Call::MoveFileExW}, "Access is denied.", 5}};
  for (const auto& [fault, error, generation] : cases) {
    SCOPED_TRACE(CallName(fault.call));
    CreateSaved();
    computer.calls.Inject(fault);
    TransactionJournal journal = Record(4);
    EXPECT_EQ(FailureOf([&] { SaveJournal(kDirectory, journal); }), error);
    computer.calls.ClearFaults();
    EXPECT_EQ(journal.generation, generation);
    EXPECT_EQ(computer.disk.ReadFile(kDirectory + u"\\journal.0"), Slot(4));
    EXPECT_EQ(computer.disk.ReadFile(kDirectory + u"\\journal.1"), Slot(3));
    SaveJournal(kDirectory, journal);
    EXPECT_EQ(Load(), std::to_string(journal.generation));
  }
  computer.calls.Inject({.call = Call::Fclose});
  TransactionJournal journal = Record(4);
  EXPECT_EQ(FailureOf([&] { SaveJournal(kDirectory, journal); }), "") << "a failing close";
  CreateSaved();
  journal = Record(4);
  journal.target = u"C:\\\xd800";
  EXPECT_NE(FailureOf([&] { SaveJournal(kDirectory, journal); }), "") << "a lone surrogate";
  EXPECT_EQ(Load(), "4");
}

}  // namespace
}  // namespace tolvarine::updater
