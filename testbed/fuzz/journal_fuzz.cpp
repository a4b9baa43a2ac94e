// The journal's text. An input that begins like a journal is read as one, and once more with the
// correct checksum, since the reader refuses any other. The lines of any other input become the
// paths of a record that is written and read.

#include <algorithm>
#include <set>

#include "fuzz_text.h"
#include "journal/journal_text.h"
#include "lists/release_path.h"
#include "text/fnv1a.h"
#include "text/system_error.h"

namespace tolvarine::updater::fuzz {
namespace {

std::string WithChecksum(std::string_view body) {
  return std::string(body) + "checksum " + std::to_string(Fnv1a64(body)) + "\n";
}

std::optional<TransactionJournal> Read(std::string_view text) {
  try {
    return ParseJournal(text);
  } catch (const SystemError&) {
    return std::nullopt;  // A path that is not UTF-8. Nothing else may be thrown.
  }
}

std::string Described(Path path) {
  std::ranges::replace(path, u'\\', u'/');
  return Shown(path) + "\n";
}

// Every member of a record.
std::string Described(const TransactionJournal& journal) {
  std::string text = Described(journal.target) + Shown(journal.error) + "\n";
  for (const std::uint64_t number :
       {journal.generation, static_cast<std::uint64_t>(journal.phase), journal.backup,
        journal.apply, journal.rollback, static_cast<std::uint64_t>(journal.intent),
        journal.intent_entry}) {
    text += std::to_string(number) + "\n";
  }
  for (const JournalEntry& entry : journal.entries) {
    text += Described(entry.path) + entry.sha256;
    for (const std::uint64_t number : {static_cast<std::uint64_t>(entry.kind), entry.size,
                                       static_cast<std::uint64_t>(entry.baseline_exists),
                                       entry.baseline_size, entry.baseline_hash}) {
      text += " " + std::to_string(number);
    }
  }
  for (const JournalDirectory& directory : journal.directories) text += Described(directory.path);
  return text;
}

// A text without everything in which the reader accepts variants: white space, leading zeros (for
// simplicity, all zeros), case, the kind of separators, the version and the checksum.
std::string Essence(std::string_view text) {
  std::string essence(text.substr(30, text.rfind("checksum ") - 30));
  for (char& letter : essence) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter + 32);
  }
  std::erase_if(essence, [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); });
  for (std::size_t at = 0; (at = essence.find("5c", at)) != std::string::npos;) {
    essence.replace(at, 2, "2f");
  }
  std::erase(essence, '0');
  return essence;
}

void ExpectValid(const TransactionJournal& journal, const std::string& text) {
  const std::uint64_t count = journal.entries.size();
  const auto phase = static_cast<int>(journal.phase);
  const auto intent = static_cast<int>(journal.intent);
  Expect("the numbers of a record are in range",
         phase >= 1 && phase <= 5 && intent >= 0 && intent <= 3 && journal.backup <= count &&
             journal.apply <= count && journal.rollback <= count &&
             (intent == 0 || journal.intent_entry < count) &&
             journal.target.find(u'\0') == Path::npos,
         text);
  for (const JournalEntry& entry : journal.entries) {
    Expect("an entry's path is plain", IsPlainPath(entry.path), text);
    Expect("an entry to delete has no content",
           entry.kind == JournalEntryKind::Install ||
               (entry.size == 0 && entry.sha256 == std::string(64, '0')),
           text);
  }
  for (const JournalDirectory& directory : journal.directories) {
    Expect("a directory's path is plain", IsPlainPath(directory.path), text);
  }
}

// Changes digits, since a number that is another valid number is what only the checksum detects.
void ExpectDamageIsDetected(const std::string& text) {
  const std::size_t chance = Fnv1a64(text) % text.size();
  std::size_t digit = text.find_first_of("0123456789", chance);
  for (int i = 0; i < 4 && digit != std::string::npos; ++i) {
    std::string damaged = text;
    damaged[digit] = damaged[digit] == '1' ? '2' : '1';
    Expect("a changed digit is detected", !Read(damaged), damaged);
    digit = text.find_first_of("0123456789", digit + 1);
  }
}

void ExpectProperties(const std::string& text) {
  const auto journal = Read(text);
  if (!journal) return;
  ExpectValid(*journal, text);
  const std::string written = SerializeJournal(*journal);
  ExpectSame("the written text has what was read", Essence(written), Essence(text), text);
  const auto again = Read(written);
  Expect("what is written is read", again.has_value(), written);
  ExpectSame("a record is read as it was written", Described(*again), Described(*journal), text);
  ExpectSame("a record has one text", SerializeJournal(*again), written, text);
  ExpectDamageIsDetected(text);
}

// A valid record is read as it was written. Each line of the input is a path.
void ExpectWrittenIsRead(std::string_view bytes) {
  TransactionJournal journal;
  journal.phase = static_cast<TransactionPhase>(1 + bytes.size() % 5);
  journal.target = u"C:\\" + Path(WideLines(bytes).front().c_str());
  journal.error = bytes;
  std::set<std::u16string> keys;
  try {
    for (const Path& path : WideLines(bytes)) {
      if (!IsSafeReleasePath(path) || !keys.insert(PathCompareKey(path)).second) continue;
      journal.entries.push_back(
          {.path = path, .size = bytes.size(), .sha256 = std::string(64, 'b')});
      journal.directories.push_back({path});
    }
    const std::string text = SerializeJournal(journal);
    const auto read = Read(text);
    ExpectSame("a valid record is read as it was written",
               read ? Described(*read) : std::string("refused"), Described(journal), text);
  } catch (const SystemError&) {
    return;  // A lone surrogate.
  }
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater::fuzz;
  UseComputer();
  const std::string_view bytes = Bytes(data, size);
  if (bytes.starts_with("TOLVARINE")) {
    ExpectProperties(std::string(bytes));
    ExpectProperties(WithChecksum(bytes.substr(0, bytes.rfind("checksum "))));
  } else {
    ExpectWrittenIsRead(bytes);
  }
  return 0;
}
