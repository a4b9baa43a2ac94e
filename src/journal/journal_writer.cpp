#include "journal/journal_text.h"
#include "lists/release_path.h"
#include "text/decimal.h"
#include "text/fnv1a.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

// Room for the fixed lines, and for the numbers and blanks of one row.
constexpr std::size_t kFixedBytes = 400;
constexpr std::size_t kRowBytes = 160;

template <typename Number>
void AppendNumberLine(std::string& text, std::string_view keyword, Number number) {
  text.append(keyword);
  text.push_back(' ');
  AppendDecimal(text, number);
  text.push_back('\n');
}

void AppendHexLine(std::string& text, std::string_view keyword, std::string_view bytes) {
  text.append(keyword);
  text.push_back(' ');
  AppendHex(text, bytes);
  text.push_back('\n');
}

void AppendEntryLine(std::string& text, const JournalEntry& entry) {
  text.append("entry ");
  AppendHex(text, GenericUtf8Path(entry.path));
  text.push_back(' ');
  AppendDecimal(text, entry.size);
  text.push_back(' ');
  text.append(entry.sha256);
  text.append(entry.baseline_exists ? " 1 " : " 0 ");
  AppendDecimal(text, entry.baseline_size);
  text.push_back(' ');
  AppendDecimal(text, entry.baseline_hash);
  text.push_back(' ');
  AppendDecimal(text, static_cast<std::int32_t>(entry.kind));
  text.push_back('\n');
}

// Enough for the whole text where paths are ASCII, so that it is built in one allocation.
std::size_t EstimatedSize(const TransactionJournal& journal) {
  std::size_t size = kFixedBytes + 2 * (journal.error.size() + journal.target.size());
  for (const JournalEntry& entry : journal.entries) size += kRowBytes + 2 * entry.path.size();
  for (const JournalDirectory& directory : journal.directories) {
    size += kRowBytes + 2 * directory.path.size();
  }
  return size;
}

}  // namespace

std::string FormatJournalBody(const TransactionJournal& journal) {
  std::string text;
  text.reserve(EstimatedSize(journal));
  text.append(kJournalMagic);
  AppendNumberLine(text, "generation", journal.generation);
  AppendNumberLine(text, "phase", static_cast<std::int32_t>(journal.phase));
  AppendHexLine(text, "target", GenericUtf8Path(journal.target));
  AppendNumberLine(text, "backup", journal.backup);
  AppendNumberLine(text, "apply", journal.apply);
  AppendNumberLine(text, "rollback", journal.rollback);
  text.append("intent ");
  AppendDecimal(text, static_cast<std::int32_t>(journal.intent));
  text.push_back(' ');
  AppendDecimal(text, journal.intent_entry);
  text.push_back('\n');
  AppendHexLine(text, "error", journal.error);
  AppendNumberLine(text, "entries", journal.entries.size());
  for (const JournalEntry& entry : journal.entries) AppendEntryLine(text, entry);
  AppendNumberLine(text, "directories", journal.directories.size());
  for (const JournalDirectory& directory : journal.directories) {
    AppendHexLine(text, "directory", GenericUtf8Path(directory.path));
  }
  return text;
}

std::string SerializeJournal(const TransactionJournal& journal) {
  std::string text = FormatJournalBody(journal);
  AppendNumberLine(text, "checksum", Fnv1a64(text));
  return text;
}

}  // namespace tolvarine::updater
