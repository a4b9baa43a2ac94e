#include "journal/journal_text.h"

#include <set>
#include <utility>

#include "journal/field_reader.h"
#include "lists/release_path.h"
#include "text/decimal.h"
#include "text/fnv1a.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

// --- Writing -------------------------------------------------------------------------------------

// Upper bounds, in bytes: of the fixed lines, and of the numbers and blanks of one row.
constexpr std::size_t kFixedBytes = 400;
constexpr std::size_t kRowBytes = 160;

// Builds the text. A save formats the whole journal, so the writer reserves the memory once and
// reuses one buffer for the UTF-8 form of every path.
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

// The size in bytes that the text does not exceed if all paths are ASCII.
std::size_t ExpectedSize(const TransactionJournal& journal) {
  std::size_t size = kFixedBytes + 2 * (journal.error.size() + journal.target.size());
  for (const JournalEntry& entry : journal.entries) size += kRowBytes + 2 * entry.path.size();
  for (const JournalDirectory& directory : journal.directories) {
    size += kRowBytes + 2 * directory.path.size();
  }
  return size;
}

// --- Reading -------------------------------------------------------------------------------------

constexpr std::string_view kChecksumKeyword = "checksum ";

// Thrown when the text is not a valid journal; ParseJournal catches it.
struct Refusal {};

void Require(bool condition) {
  if (!condition) throw Refusal{};
}

template <typename Value>
Value Required(std::optional<Value> value) {
  Require(value.has_value());
  return *std::move(value);
}

// Returns the text before the checksum line, if that line is the last one and its checksum matches.
std::string_view VerifiedBody(std::string_view text) {
  const std::size_t position = text.rfind(kChecksumKeyword);
  Require(position != std::string_view::npos && position != 0);
  const std::size_t newline = text.find('\n', position);
  Require(newline == text.size() - 1);
  const std::size_t digits = position + kChecksumKeyword.size();
  const auto checksum = ParseDecimal<std::uint64_t>(text.substr(digits, newline - digits));
  const std::string_view body = text.substr(0, position);
  Require(Required(checksum) == Fnv1a64(body));
  return body;
}

// Reads a body line by line. The newline of the last line may be missing.
class BodyReader {
 public:
  explicit BodyReader(std::string_view body) : rest_(body) {}

  [[nodiscard]] bool AtEnd() const { return rest_.empty(); }

  std::string_view Line() {
    Require(!AtEnd());
    const std::size_t newline = rest_.find('\n');
    const std::string_view line = rest_.substr(0, newline);
    rest_.remove_prefix(newline == std::string_view::npos ? rest_.size() : newline + 1);
    return line;
  }

  // Returns the rest of the next line, which must begin with `keyword`; that includes its blank.
  std::string_view After(std::string_view keyword) {
    std::string_view line = Line();
    Require(line.starts_with(keyword));
    line.remove_prefix(keyword.size());
    return line;
  }

  template <typename Number>
  Number NumberAfter(std::string_view keyword) {
    return Required(ParseDecimal<Number>(After(keyword)));
  }

  std::string BytesAfter(std::string_view keyword) { return Required(DecodeHex(After(keyword))); }

 private:
  std::string_view rest_;
};

// Returns the version that the magic line names. The magic constants end in a newline, so one is
// appended to the line for the comparison.
int ReadVersion(BodyReader& body) {
  const std::string line = std::string(body.Line()) + '\n';
  if (line == kJournalMagic) return 2;
  Require(line == kJournalMagicVersion1);
  return 1;
}

TransactionPhase ReadPhase(BodyReader& body) {
  const auto phase = static_cast<TransactionPhase>(body.NumberAfter<std::int32_t>("phase "));
  Require(phase >= TransactionPhase::Backup && phase <= TransactionPhase::RolledBack);
  return phase;
}

Path ReadTarget(BodyReader& body) {
  Path target = PathFromUtf8(body.BytesAfter("target "));
  Require(IsAbsolutePath(target) && target.find(u'\0') == Path::npos);
  return target;
}

void ReadIntent(BodyReader& body, TransactionJournal& journal) {
  FieldReader fields(body.After("intent "));
  const auto intent = Required(fields.Number<std::int32_t>());
  journal.intent_entry = Required(fields.Number<std::uint64_t>());
  Require(intent >= 0 && intent <= static_cast<std::int32_t>(TransactionIntent::Rollback));
  Require(fields.AtEnd());
  journal.intent = static_cast<TransactionIntent>(intent);
}

std::uint64_t ReadCount(BodyReader& body, std::string_view keyword) {
  const auto count = body.NumberAfter<std::uint64_t>(keyword);
  Require(count <= kJournalCountLimit);
  return count;
}

// Reads a path of an entry or a directory. `keys` holds the comparison keys of the earlier ones.
Path ReadSafePath(std::string_view hex, std::set<std::u16string>& keys) {
  Path path = PathFromUtf8(Required(DecodeHex(hex)));
  Require(IsSafeReleasePath(path) && keys.insert(PathCompareKey(path)).second);
  return path;
}

JournalEntryKind ReadKind(FieldReader& fields, const JournalEntry& entry) {
  const auto kind = static_cast<JournalEntryKind>(Required(fields.Number<std::int32_t>()));
  Require(kind == JournalEntryKind::Install || kind == JournalEntryKind::Delete);
  if (kind == JournalEntryKind::Delete) Require(entry.size == 0 && entry.sha256 == kNoSha256);
  return kind;
}

JournalEntry ReadEntry(std::string_view line, int version, std::set<std::u16string>& keys) {
  FieldReader fields(line);
  JournalEntry entry;
  const std::string_view path = Required(fields.Token());
  entry.size = Required(fields.Number<std::uint64_t>());
  entry.sha256 = Required(fields.Token());
  const auto baseline_exists = Required(fields.Number<std::uint32_t>());
  entry.baseline_size = Required(fields.Number<std::uint64_t>());
  entry.baseline_hash = Required(fields.Number<std::uint64_t>());
  Require(baseline_exists <= 1 && IsLowerHex64(std::string_view(entry.sha256)));
  if (version > 1) entry.kind = ReadKind(fields, entry);
  Require(fields.AtEnd());
  entry.path = ReadSafePath(path, keys);
  entry.baseline_exists = baseline_exists == 1;
  return entry;
}

void ReadEntries(BodyReader& body, int version, TransactionJournal& journal) {
  const std::uint64_t count = ReadCount(body, "entries ");
  journal.entries.reserve(count);
  std::set<std::u16string> keys;
  for (std::uint64_t i = 0; i < count; ++i) {
    journal.entries.push_back(ReadEntry(body.After("entry "), version, keys));
  }
}

void ReadDirectories(BodyReader& body, TransactionJournal& journal) {
  const std::uint64_t count = ReadCount(body, "directories ");
  journal.directories.reserve(count);
  std::set<std::u16string> keys;
  for (std::uint64_t i = 0; i < count; ++i) {
    journal.directories.push_back({ReadSafePath(body.After("directory "), keys)});
  }
}

bool StaysWithinEntries(const TransactionJournal& journal) {
  const std::uint64_t count = journal.entries.size();
  const bool intent_fits =
      journal.intent == TransactionIntent::None || journal.intent_entry < count;
  return journal.backup <= count && journal.apply <= count && journal.rollback <= count &&
         intent_fits;
}

TransactionJournal ReadBody(BodyReader body) {
  TransactionJournal journal;
  const int version = ReadVersion(body);
  journal.generation = body.NumberAfter<std::uint64_t>("generation ");
  journal.phase = ReadPhase(body);
  journal.target = ReadTarget(body);
  journal.backup = body.NumberAfter<std::uint64_t>("backup ");
  journal.apply = body.NumberAfter<std::uint64_t>("apply ");
  journal.rollback = body.NumberAfter<std::uint64_t>("rollback ");
  ReadIntent(body, journal);
  journal.error = body.BytesAfter("error ");
  ReadEntries(body, version, journal);
  ReadDirectories(body, journal);
  Require(body.AtEnd() && StaysWithinEntries(journal));
  return journal;
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

std::optional<TransactionJournal> ParseJournal(std::string_view text) {
  try {
    return ReadBody(BodyReader(VerifiedBody(text)));
  } catch (const Refusal&) {
    return std::nullopt;
  }
}

}  // namespace tolvarine::updater
