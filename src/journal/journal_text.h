// The text form of a journal record. The functions here touch no file.
//
// Every line ends in 0x0A. Numbers are decimal. Paths and messages are the hexadecimal form of
// their bytes; the bytes of a path are UTF-8 with `/` as separator.
//
//     journal   = magic generation phase target backup apply rollback intent error
//                 entries *entry directories *directory checksum
//     magic     = "TOLVARINE-UPDATE-TRANSACTION-2"
//     generation, backup, apply, rollback, entries, directories = keyword " " number
//     phase     = "phase " number               ; 1 to 5
//     target    = "target " hex                 ; an absolute path
//     intent    = "intent " number " " number   ; 0 to 3, and an entry's index
//     error     = "error " [hex]
//     entry     = "entry " path " " size " " sha256 " " baseline-exists " " baseline-size
//                 " " baseline-hash " " kind
//     path      = hex
//     baseline-exists, kind = "0" / "1"
//     directory = "directory " hex
//     checksum  = "checksum " number            ; Fnv1a64 of every byte before this line
//
// Example: generation 7 of a transaction of D:/Apps/Demo in phase Apply. One of two entries is
// done, the intent names the other one. The text has 440 bytes. Both digests are shortened here:
// the first is the SHA-256 of the bytes `hello`, the second is 64 zeros.
//
//     TOLVARINE-UPDATE-TRANSACTION-2
//     generation 7
//     phase 2
//     target 443a2f417070732f44656d6f
//     backup 2
//     apply 1
//     rollback 0
//     intent 2 1
//     error
//     entries 2
//     entry 62696e2f636f72652e646c6c 5 2cf24dba…938b9824 1 3 16654208175385433931 0
//     entry 6f6c642e747874 0 0000…0000 1 3 16654208175385433931 1
//     directories 1
//     directory 62696e
//     checksum 9885737470916672921
//
// The line "error" ends in its blank. An older format has a magic that ends in "-1" and entry lines
// without a kind; all its entries are Install. It is read and never written.
//
// Only the checksum protects against changes, so the reader also accepts what the writer never
// emits: upper-case digits in hex fields, leading zeros, white space (blanks and \t to \r) before,
// between and after the fields of intent and entry lines, and a missing newline directly before the
// checksum line.
//
// The writer checks nothing, so it can write a record that the reader refuses. The reader requires:
//
//   - at most 100000 entries and at most 100000 directories;
//   - counters up to the number of entries, and the intent's index below that number, unless the
//     intent is None;
//   - a target without U+0000;
//   - digests of exactly 64 lower-case digits, and for a Delete entry size 0 and 64 zeros;
//   - safe release paths; no two entries with the same comparison key, and no two directories with
//     the same comparison key. An entry and a directory may share one.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "journal/journal_record.h"

namespace tolvarine::updater {

inline constexpr std::string_view kJournalMagic = "TOLVARINE-UPDATE-TRANSACTION-2\n";
inline constexpr std::string_view kJournalMagicVersion1 = "TOLVARINE-UPDATE-TRANSACTION-1\n";
inline constexpr std::uint64_t kJournalCountLimit = 100000;  // Of entries, and of directories.

// Returns the complete content of a journal file. Throws SystemError for a path with a lone
// surrogate.
[[nodiscard]] std::string SerializeJournal(const TransactionJournal& journal);

// Returns the same without the checksum line.
[[nodiscard]] std::string FormatJournalBody(const TransactionJournal& journal);

// Returns the record of a valid journal text, and nothing for any other text. Throws SystemError if
// the bytes of a path are not well-formed UTF-8; callers treat that as an invalid text.
[[nodiscard]] std::optional<TransactionJournal> ParseJournal(std::string_view text);

}  // namespace tolvarine::updater
