#include "journal/journal_text.h"

#include <map>
#include <vector>

#include "support/simulated_fixture.h"
#include "support/text_printers.h"
#include "text/fnv1a.h"
#include "text/system_error.h"

namespace tolvarine::updater {
namespace {

const std::string kZeros(64, '0');
const std::string kHello = "2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824";
const std::string kBody =
    "TOLVARINE-UPDATE-TRANSACTION-2\n"
    "generation 7\n"
    "phase 2\n"
    "target 443a2f417070732f44656d6f\n"
    "backup 2\n"
    "apply 1\n"
    "rollback 0\n"
    "intent 2 1\n"
    "error \n"
    "entries 2\n"
    "entry 62696e2f636f72652e646c6c 5 " +
    kHello +
    " 1 3 16654208175385433931 0\n"
    "entry 6f6c642e747874 0 " +
    kZeros +
    " 1 3 16654208175385433931 1\n"
    "directories 1\n"
    "directory 62696e\n";
const std::string kExample = kBody + "checksum 9885737470916672921\n";

// A body with its checksum line.
std::string Sealed(const std::string& body) {
  return body + "checksum " + std::to_string(Fnv1a64(body)) + "\n";
}

// The example's body with the first `from` replaced by `to`.
std::string With(const std::string& from, const std::string& to) {
  const std::size_t at = kBody.find(from);
  EXPECT_NE(at, std::string::npos) << from;
  return std::string(kBody).replace(at, from.size(), to);
}

// A path that is not UTF-8 is refused by an exception, everything else by an empty result.
std::optional<TransactionJournal> Read(std::string_view text) {
  try {
    return ParseJournal(text);
  } catch (const SystemError& failure) {
    EXPECT_EQ(failure.code(), 1113u);
    return std::nullopt;
  }
}

// The record of a text as the writer formats it; empty for a text that is refused.
std::string Rewritten(std::string_view text) {
  const auto journal = Read(text);
  return journal ? SerializeJournal(*journal) : std::string();
}

class JournalText : public SimulatedFixture {};

TEST_F(JournalText, ExampleIsReadAndWrittenByteForByte) {
  TransactionJournal journal = {
      7, TransactionPhase::Apply, u"D:\\Apps/Demo", 2, 1, 0, {}, 1, "", {}, {}};
  journal.intent = TransactionIntent::Apply;
  journal.entries = {
      {u"bin\\core.dll", JournalEntryKind::Install, 5, kHello, true, 3, Fnv1a64("abc")},
      {u"old.txt", JournalEntryKind::Delete, 0, kZeros, true, 3, Fnv1a64("abc")}};
  journal.directories = {{u"bin"}};
  EXPECT_EQ(FormatJournalBody(journal), kBody);
  EXPECT_EQ(SerializeJournal(journal), kExample);
  EXPECT_EQ(kExample.size(), 440u);
  EXPECT_EQ(Rewritten(kExample), kExample);
}

TEST_F(JournalText, TheOlderMagicHasNoKinds) {
  std::string older = With("-2\n", "-1\n");
  for (const std::string kind : {" 0\nentry", " 1\ndirectories"}) {
    older.replace(older.find(kind), 2, "");
  }
  EXPECT_EQ(Rewritten(Sealed(older)), Sealed(With("31 1\n", "31 0\n")));
  EXPECT_FALSE(Read(Sealed(With("-2\n", "-1\n")))) << "a seventh field";
  EXPECT_FALSE(Read(Sealed(With("931 0\n", "931\n")))) << "a kind that is missing";
}

TEST_F(JournalText, ReaderAcceptsMoreThanTheWriterEmits) {
  const struct {
    std::string from, lax, written;
  } edits[] = {
      {"443a2f417070732f44656d6f", "443A2F417070732F44656D6F", "443a2f417070732f44656d6f"},
      {"443a2f417070732f44656d6f", "5c5c73", "2f2f73"},
      {"on 7", "on 0018446744073709551615", "on 18446744073709551615"},
      {"intent 2 1", "intent  \t02\v 01 \r", "intent 2 1"},
      {"intent 2 1", "intent 0 99", "intent 0 99"},
      {"error ", "error 00FFfe0A", "error 00fffe0a"},
      {"c 5 2", "c 5a", "c 5 a"},  // A number ends where its digits do.
      {" 1 3 16654208175385433931 0", " 00 0 0 00 ", " 0 0 0 0"},
      {"directory 62696e\n", "directory 62696e", "directory 62696e\n"},
      {"ry 62696e\n", "ry 6F6c642e747874\n", "ry 6f6c642e747874\n"},  // The path of an entry.
  };
  for (const auto& [from, lax, written] : edits) {
    EXPECT_EQ(Rewritten(Sealed(With(from, lax))), Sealed(With(from, written))) << lax;
  }
  EXPECT_EQ(Rewritten(kBody + "checksum 0009885737470916672921\n"), kExample);
}

TEST_F(JournalText, ValidChecksumAloneDoesNotMakeAJournal) {
  for (const std::string& body : {std::string(), std::string("\n"), kBody + "\n",
                                  kBody + "directory 62\n", kBody.substr(0, kBody.size() - 17)}) {
    EXPECT_FALSE(Read(Sealed(body))) << body;
  }
  const std::map<std::string, std::vector<std::string>> edits = {
      {"TRANSACTION-2", {"TRANSACTION-3", "TRANSACTION-2\r", "TRANSACTION-2 ", "transaction-2"}},
      {"generation 7\n", {"", "\n", "generation\n", "generation \n", "Generation 7\n"}},
      {"on 7", {"on  7", "on 7 ", "on 7\r", "on +7", "on -7", "on 18446744073709551616"}},
      {"phase 2", {"phase 0", "phase 6", "phase -1", "phase 4294967298"}},
      {"get 443a2f417070732f44656d6f", {"get ", "get", "get 61", "get 2f61", "get 443a61"}},
      {"get 443a2f", {"get 443a2f00", "get 443a2fff", "get 443a2f4"}},
      {"rollback 0", {"rollback 3"}},
      {"intent 2 1",
       {"intent 4 0", "intent 2 2", "intent 2", "intent 2x1",
        "intent 2\x01"
        "1",
        "intent 2 1 0"}},
      {"tent 2 1", {"tent 4294967296 1", "tent 0 18446744073709551616"}},
      {"error ", {"error", "error 6", "error 6x"}},
      {"entries 2", {"entries 1", "entries 3", "entries 100001"}},
      {"entry 62696e2f636f72652e646c6c", {"entry", "entry 6", "entry 2e2e", "entry ff"}},
      {"c 5 2cf", {"c 5 2CF", "c 5 cf", "c 5 02cf", "c 18446744073709551616 2cf"}},
      {" 1 3 16", {" 2 3 16", " 3 16", " 1 1 3 16"}},
      {"931 0\n", {"931 2\n", "931 1\n", "931 0 0\n", "931 x\n", "931\n"}},
      {"0 " + kZeros, {"1 " + kZeros, "0 " + kHello}},
      {"6f6c642e747874", {"42494e5c436f72652e646c6c"}},  // BIN\Core.dll again.
      {"directories 1", {"directories 0", "directories 2", "directories 100001"}},
      {"directories 1\n", {"directories 2\ndirectory 424e\ndirectory 626e\n"}},
      {"ory 62696e", {"ory 62696e ", "ory", "ory ", "ory 636f6e", "ory 2f2e2e"}},
  };
  for (const auto& [from, refused] : edits) {
    for (const std::string& to : refused) EXPECT_FALSE(Read(Sealed(With(from, to)))) << to;
  }
}

TEST_F(JournalText, ChecksumLineIsTheLastAndPlain) {
  const std::string sum = std::to_string(Fnv1a64(kBody));
  for (const std::string& text :
       {std::string(), std::string("checksum"), std::string("checksum 14695981039346656037\n"),
        kBody, kBody + "checksum \n", kBody + "checksum " + sum, kBody + "checksum " + sum + " \n",
        kBody + "checksum +" + sum + "\n", kBody + "checksum  " + sum + "\n",
        kBody + "checksum " + sum + "\r\n", kBody + "Checksum " + sum + "\n",
        kBody + "checksum 184467440737095516160\n", kExample + "\n", kExample + "x",
        Sealed(kExample)}) {
    EXPECT_FALSE(Read(text)) << text;
  }
}

TEST_F(JournalText, LimitIsOneHundredThousandRows) {
  TransactionJournal journal;
  journal.phase = TransactionPhase::Backup;
  journal.target = u"C:\\Apps";
  for (int number = 0; number < 100'000; ++number) {
    const std::string digits = std::to_string(number);
    journal.directories.push_back({Path(digits.begin(), digits.end())});
  }
  EXPECT_TRUE(ParseJournal(SerializeJournal(journal)));
  journal.directories.push_back({u"one more"});
  EXPECT_FALSE(ParseJournal(SerializeJournal(journal)));
}

}  // namespace
}  // namespace tolvarine::updater
