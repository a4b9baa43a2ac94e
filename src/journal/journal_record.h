// The record of a transaction: everything that a run knows about what has been done. It is saved
// before and after every step, and a new process continues from it.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The state of a transaction. Only the values 1 to 5 are saved.
enum class TransactionPhase : std::int32_t {
  None = 0,        // In memory only: the run has no record yet.
  Backup = 1,      // The plan is durable; baseline copies are being made; the target is untouched.
  Apply = 2,       // Every baseline copy is complete; entries are being applied.
  Rollback = 3,    // The target is being restored.
  Committed = 4,   // Every entry is applied.
  RolledBack = 5,  // The target holds the baseline; the record's `error` holds the reason.
  Corrupt = 6,     // In memory only: the journal could not be read.
};

// The step that is about to be carried out. It is saved before the step begins.
enum class TransactionIntent : std::int32_t { None = 0, Backup = 1, Apply = 2, Rollback = 3 };

enum class JournalEntryKind : std::int32_t {
  Install = 0,  // Put a file of the release at the path.
  Delete = 1,   // Remove the file at the path.
};

// The `sha256` of a Delete entry.
inline constexpr std::string_view kNoSha256 =
    "0000000000000000000000000000000000000000000000000000000000000000";

// One file of the plan.
struct JournalEntry {
  Path path;  // Relative to the release and to the target; a safe release path.
  JournalEntryKind kind = JournalEntryKind::Install;
  std::uint64_t size = 0;        // Of the release file, in bytes; 0 for Delete.
  std::string sha256{};          // Of the release file, 64 lower-case digits; kNoSha256 for Delete.
  bool baseline_exists = false;  // Whether the target held a regular file here at plan time.
  std::uint64_t baseline_size = 0;  // The size of that file in bytes; 0 if there was none.
  std::uint64_t baseline_hash = 0;  // The Fnv1a64 of that file; 0 if there was none.
};

// A directory of the target that the plan found missing.
struct JournalDirectory {
  Path path;  // A safe release path.
};

struct TransactionJournal {
  std::uint64_t generation = 0;  // The number of the last save.
  TransactionPhase phase = TransactionPhase::None;
  Path target;                 // The installation directory, absolute.
  std::uint64_t backup = 0;    // The number of entries whose backup is finished.
  std::uint64_t apply = 0;     // The number of entries that are applied.
  std::uint64_t rollback = 0;  // The number of entries that are restored.
  TransactionIntent intent = TransactionIntent::None;
  // The index of the entry that `intent` refers to. It may be stale while `intent` is None.
  std::uint64_t intent_entry = 0;
  std::string error;  // The text of the transaction's failure; may hold any bytes.
  std::vector<JournalEntry> entries;
  std::vector<JournalDirectory> directories;
};

}  // namespace tolvarine::updater
