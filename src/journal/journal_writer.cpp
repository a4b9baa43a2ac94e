#include <utility>

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

// The text under construction. Room for it is reserved ahead, and one buffer serves the UTF-8 form
// of every path.
class Writer {
 public:
  explicit Writer(std::size_t expected_size) { text_.reserve(expected_size); }

  Writer& Text(std::string_view text) {
    text_.append(text);
    return *this;
  }
  template <typename Number>
  Writer& Decimal(Number number) {
    AppendDecimal(text_, number);
    return *this;
  }
  Writer& Hex(std::string_view bytes) {
    AppendHex(text_, bytes);
    return *this;
  }
  Writer& HexPath(PathView path) {
    path_bytes_.clear();
    AppendGenericUtf8Path(path_bytes_, path);
    return Hex(path_bytes_);
  }

  [[nodiscard]] std::string Take() { return std::move(text_); }

 private:
  std::string text_;
  std::string path_bytes_;
};

void WriteEntry(Writer& writer, const JournalEntry& entry) {
  writer.Text("entry ").HexPath(entry.path).Text(" ").Decimal(entry.size);
  writer.Text(" ").Text(entry.sha256).Text(entry.baseline_exists ? " 1 " : " 0 ");
  writer.Decimal(entry.baseline_size).Text(" ").Decimal(entry.baseline_hash);
  writer.Text(" ").Decimal(static_cast<std::int32_t>(entry.kind)).Text("\n");
}

// Enough for the whole text where paths are ASCII.
std::size_t ExpectedSize(const TransactionJournal& journal) {
  std::size_t size = kFixedBytes + 2 * (journal.error.size() + journal.target.size());
  for (const JournalEntry& entry : journal.entries) size += kRowBytes + 2 * entry.path.size();
  for (const JournalDirectory& directory : journal.directories) {
    size += kRowBytes + 2 * directory.path.size();
  }
  return size;
}

}  // namespace

std::string FormatJournalBody(const TransactionJournal& journal) {
  Writer writer(ExpectedSize(journal));
  writer.Text(kJournalMagic);
  writer.Text("generation ").Decimal(journal.generation);
  writer.Text("\nphase ").Decimal(static_cast<std::int32_t>(journal.phase));
  writer.Text("\ntarget ").HexPath(journal.target);
  writer.Text("\nbackup ").Decimal(journal.backup);
  writer.Text("\napply ").Decimal(journal.apply);
  writer.Text("\nrollback ").Decimal(journal.rollback);
  writer.Text("\nintent ").Decimal(static_cast<std::int32_t>(journal.intent));
  writer.Text(" ").Decimal(journal.intent_entry);
  writer.Text("\nerror ").Hex(journal.error);
  writer.Text("\nentries ").Decimal(journal.entries.size()).Text("\n");
  for (const JournalEntry& entry : journal.entries) WriteEntry(writer, entry);
  writer.Text("directories ").Decimal(journal.directories.size()).Text("\n");
  for (const JournalDirectory& directory : journal.directories) {
    writer.Text("directory ").HexPath(directory.path).Text("\n");
  }
  return writer.Take();
}

std::string SerializeJournal(const TransactionJournal& journal) {
  std::string text = FormatJournalBody(journal);
  const std::uint64_t checksum = Fnv1a64(text);
  text.append("checksum ");
  AppendDecimal(text, checksum);
  text.push_back('\n');
  return text;
}

}  // namespace tolvarine::updater
