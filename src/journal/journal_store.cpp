#include "journal/journal_store.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/read_blocks.h"
#include "files/unique_stream.h"
#include "journal/journal_text.h"

namespace tolvarine::updater {
namespace {

constexpr PathView kEvenSlot = u"journal.0";
constexpr PathView kOddSlot = u"journal.1";
constexpr PathView kSlotTemporarySuffix = u".new";

// A failing read counts as the end of the file: the checksum then refuses the truncated text.
std::optional<std::string> ReadWholeFile(const Path& path) {
  const UniqueStream stream = OpenStream(path, u"rb");
  if (!stream) return std::nullopt;
  std::string text;
  ReadBlocks(stream.get(), [&](std::string_view block) { text.append(block); });
  return text;
}

// Returns nothing for a slot that is missing, unreadable or invalid.
std::optional<TransactionJournal> ReadSlot(const Path& path) {
  const std::optional<std::string> text = ReadWholeFile(path);
  if (!text) return std::nullopt;
  try {
    return ParseJournal(*text);
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

enum class Content { kEmpty, kSomething, kUnreadable };

// Any entry makes the directory non-empty, also an unrelated file or a temporary.
Content ContentOf(const Path& directory) {
  constexpr std::uint32_t kStop = ~std::uint32_t{0};
  const std::uint32_t code = EnumerateDirectory(directory, [](const TreeEntry&) { return kStop; });
  if (code == kStop) return Content::kSomething;
  return code == 0 ? Content::kEmpty : Content::kUnreadable;
}

std::optional<TransactionJournal> NewestSlot(const Path& directory) {
  std::optional<TransactionJournal> best;
  for (const PathView slot : {kEvenSlot, kOddSlot}) {
    std::optional<TransactionJournal> candidate = ReadSlot(JoinPath(directory, slot));
    if (candidate && (!best || candidate->generation > best->generation)) {
      best = std::move(candidate);
    }
  }
  return best;
}

}  // namespace

Path JournalSlot(const Path& directory, std::uint64_t generation) {
  return JoinPath(directory, generation % 2 == 0 ? kEvenSlot : kOddSlot);
}

JournalLoadResult LoadJournal(const Path& directory) {
  const FileStatus status = QueryLinkStatus(directory);
  if (IsNoSuchFileOrDirectory(status.error)) return {JournalLoadState::None};
  if (status.error != 0 || status.kind != FileKind::directory) return {JournalLoadState::Corrupt};
  const Content content = ContentOf(directory);
  if (content == Content::kUnreadable) return {JournalLoadState::Corrupt};
  std::optional<TransactionJournal> newest = NewestSlot(directory);
  if (newest) return {JournalLoadState::Loaded, std::move(newest)};
  const bool empty = content == Content::kEmpty;
  return {empty ? JournalLoadState::None : JournalLoadState::Corrupt};
}

void SaveJournal(const Path& directory, TransactionJournal& journal) {
  const std::uint32_t code = CreateDirectories(directory);
  if (code != 0) throw FilesystemError("create_directories", code, directory);
  ++journal.generation;
  const Path slot = JournalSlot(directory, journal.generation);
  const Path temporary = slot + Path(kSlotTemporarySuffix);
  RemoveEntry(temporary);  // The result is ignored: the write truncates a temporary that stays.
  WriteJournalFile(temporary, SerializeJournal(journal));
  ReplaceFileDurably(temporary, slot);
}

void WriteJournalFile(const Path& path, std::string_view text) {
  UniqueStream stream = OpenStream(path, u"wb");
  if (!stream) throw std::runtime_error("Could not create transaction journal");
  const bool written = platform::fwrite(text.data(), text.size(), stream.get()) == text.size();
  const bool flushed = platform::fflush(stream.get()) == 0;
  if (!written || !flushed || platform::ferror(stream.get()) != 0) {
    throw std::runtime_error("Could not write transaction journal");
  }
  stream.reset();  // A failing close is ignored: the flush below proves that the bytes are on disk.
  FlushFile(path);
}

}  // namespace tolvarine::updater
