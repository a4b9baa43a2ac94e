// The two-slot store of the journal. A valid record survives a crash, a power cut and a full disk.
//
// The transaction directory holds two slots: "journal.0" for even generations and "journal.1" for
// odd ones. A save writes a temporary (the slot's name with ".new" appended), flushes it and
// renames it onto the slot with write-through. A save replaces the older record; the newer one is
// in the other slot and stays untouched. With g the last generation saved:
//
//     a crash during the save of g + 1 ...    leaves                            a load then finds
//     before the rename                       both slots, perhaps a temporary   g
//     during the rename                       either of the other two rows      g or g + 1
//     after the rename                        both slots                        g + 1
//
// A crash during the very first save, after the temporary is made and before it is renamed, leaves
// only the temporary: a load then returns Corrupt. If a slot is damaged later, its checksum fails
// and a load returns the other slot, which is one save older. That is safe, since every step of a
// transaction can be done twice.
//
// A failing save leaves the generation incremented. The next save therefore replaces the newest
// record, by one rename. The generations then have a gap, which no load checks, and until the save
// after that the other slot is more than one save old, or missing.
//
// The store does not interpret phases and repairs nothing. The installation lock keeps other
// updaters away from the directory.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "journal/journal_record.h"

namespace tolvarine::updater {

enum class JournalLoadState : std::int32_t {
  None = 0,     // There is no transaction: the directory is missing or empty.
  Loaded = 1,   // At least one slot is valid.
  Corrupt = 2,  // The directory cannot be read, or it is not empty and no slot is valid.
};

struct JournalLoadResult {
  JournalLoadState state = JournalLoadState::None;
  std::optional<TransactionJournal> journal{};  // Present exactly when `state` is Loaded.
};

// The text with which callers report Corrupt.
inline constexpr char kJournalCorruptText[] =
    "Transaction artifacts exist, but both journal slots are missing or corrupt";

// The path of the slot that a save of this generation writes.
[[nodiscard]] Path JournalSlot(const Path& directory, std::uint64_t generation);

// Returns the newest valid record of a directory, that of "journal.0" if both slots hold the same
// generation. Changes nothing. It does not check a slot's parity, never reads a temporary, however
// complete, and treats a slot that cannot be opened as missing. Throws only when memory is
// exhausted.
[[nodiscard]] JournalLoadResult LoadJournal(const Path& directory);

// Makes the record durable under the next generation. Makes the directory if it is missing. The
// record's `generation` is incremented even if the save then fails, unless the directory cannot be
// made. Throws FilesystemError, SystemError or std::runtime_error on failure; both slots are then
// unchanged, and a temporary may be left, which the next save of the same slot removes or
// overwrites.
void SaveJournal(const Path& directory, TransactionJournal& journal);

// Creates or truncates a file, writes the text and flushes it to the disk. The open uses the path
// as given, the flush its extended form. Throws std::runtime_error if the file cannot be opened or
// written and SystemError if it cannot be flushed; the bytes that were written then stay. A failing
// close is ignored.
void WriteJournalFile(const Path& path, std::string_view text);

}  // namespace tolvarine::updater
