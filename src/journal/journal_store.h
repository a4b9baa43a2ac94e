// The two-slot store that keeps a journal record alive across a crash, a power cut and a full disk.
//
// The transaction directory holds "journal.0", the slot of even generations, and "journal.1", that
// of odd ones. A save writes its slot's temporary (the slot's name with ".new" appended), flushes
// it and renames it onto the slot with write-through. After a save that succeeded, the slot that
// the next one replaces holds the state of two saves ago; the last state, in the other slot, is not
// touched by any step. So, with g the last generation saved,
//
//     a crash during the save of g + 1 ...    leaves                            a load then finds
//     before the rename                       both slots, perhaps a temporary   g
//     during the rename                       either                            g or g + 1
//     after the rename                        both slots                        g + 1
//
// and in the first save of all, once the temporary is made and before its rename, a temporary
// alone: Corrupt. A slot that is damaged later fails its checksum, and the other one, a save older,
// counts: every step of a transaction can be done twice.
//
// A save that fails leaves the generation incremented, so that the next one goes to the other slot and
// replaces the last good state itself, in one step. That leaves a gap in the generations, which
// nobody looks for, and until the save after it the other slot is older than one save, or missing.
//
// The store knows nothing of phases and repairs nothing. It relies on the installation lock to keep
// other updaters away.

#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "journal/journal_record.h"

namespace tolvarine::updater {

enum class JournalLoadState : std::int32_t {
  None = 0,     // There is no transaction: the directory is missing or empty.
  Loaded = 1,   // A valid slot was found.
  Corrupt = 2,  // The directory cannot be read, or something is in it and no slot is valid.
};

struct JournalLoadResult {
  JournalLoadState state = JournalLoadState::None;
  std::optional<TransactionJournal> journal{};  // Present exactly when `state` is Loaded.
};

// What callers say about Corrupt.
inline constexpr char kJournalCorruptText[] =
    "Transaction artifacts exist, but both journal slots are missing or corrupt";

// The slot that a save of this generation goes to.
[[nodiscard]] Path JournalSlot(const Path& directory, std::uint64_t generation);

// The newest valid record of a directory; "journal.0" where both slots hold the same generation.
// Changes nothing. On purpose, a slot's parity is not checked, a temporary is never read however
// complete it is, and a slot that cannot be opened counts as missing. Nothing in the directory's
// content makes it throw; exhausted memory does.
[[nodiscard]] JournalLoadResult LoadJournal(const Path& directory);

// Makes the record durable under the next generation, and its directory where that is missing. The
// record's `generation` is incremented whatever then happens, unless the directory cannot be made.
// On failure throws FilesystemError, SystemError or std::runtime_error; both slots then stand as
// they were, and a temporary may be left, which the next save of the same slot removes or
// overwrites.
void SaveJournal(const Path& directory, TransactionJournal& journal);

// Writes a file anew and flushes it to the disk. The open takes the path as given, the flush its
// extended form. Throws std::runtime_error where the file cannot be opened or written and
// SystemError where it cannot be flushed; what was written by then stays. A failing close is no
// failure.
void WriteJournalFile(const Path& path, std::string_view text);

}  // namespace tolvarine::updater
