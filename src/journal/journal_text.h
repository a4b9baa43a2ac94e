// The text form of a journal record. Neither direction touches a file.
//
// Every line ends in 0x0A. Numbers are plain decimal; paths and messages are the hexadecimal form
// of their bytes, a path's bytes being UTF-8 with `/` as separator.
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
// Generation 7 of a transaction of D:/Apps/Demo in phase Apply, with one of two entries done and
// the other announced, is 440 bytes. Both digests are cut short here: the first is the SHA-256 of
// the bytes `hello`, the second is 64 zeros.
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
// where the line "error" still ends in its blank. The older magic ends in "-1"; its entry lines
// have no kind, and all of them are Install. It is read and never written.
//
// The checksum is the whole protection against change, so a reader takes more than a writer emits:
// upper-case digits in hex fields, leading zeros, white space (blanks and \t to \r) before, between
// and behind the fields of intent and entry lines, and a last line without its newline before the
// checksum.
//
// A writer checks nothing, so it can write a record that a reader refuses. A reader's limits: at
// most 100000 entries and as many directories; counters up to the number of entries, and the
// intent's index below it unless the intent is None; a target without U+0000; digests of exactly 64
// lower-case digits; a Delete entry with size 0 and a digest of zeros; safe release paths, no two
// entries and no two directories with the same comparison key (a path may stand in both).

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

// What stands in for the digest of a Delete entry.
inline constexpr std::string_view kNoSha256 =
    "0000000000000000000000000000000000000000000000000000000000000000";

// The complete content of a journal file. Throws SystemError for a path with a lone surrogate.
[[nodiscard]] std::string SerializeJournal(const TransactionJournal& journal);

// The same without the checksum line.
[[nodiscard]] std::string FormatJournalBody(const TransactionJournal& journal);

// The record of a text that is a sound journal, nothing for any other. Throws SystemError where a
// path is not well-formed UTF-8; a caller treats that as a refusal.
[[nodiscard]] std::optional<TransactionJournal> ParseJournal(std::string_view text);

}  // namespace tolvarine::updater
