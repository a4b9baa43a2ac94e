// The record of a transaction: all that a run knows about what has been done. It is saved before
// and after every step, and a new process continues from it.

#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// Where a transaction stands. The values 1 to 5 are the ones that are saved.
enum class TransactionPhase : std::int32_t {
  None = 0,        // In memory only: no record has been adopted yet.
  Backup = 1,      // The plan is durable; baseline copies are being made; the target is untouched.
  Apply = 2,       // Every baseline copy is complete; entries are being applied.
  Rollback = 3,    // The target is being restored.
  Committed = 4,   // Every entry is applied.
  RolledBack = 5,  // The target holds the baseline; the record's `error` says why.
  Corrupt = 6,     // In memory only: the journal could not be read.
};

// The step that is announced before it is carried out.
enum class TransactionIntent : std::int32_t { None = 0, Backup = 1, Apply = 2, Rollback = 3 };

enum class JournalEntryKind : std::int32_t {
  Install = 0,  // A file of the release is to stand at the path.
  Delete = 1,   // The file at the path is to be gone.
};

// One file of the plan.
struct JournalEntry {
  Path path;  // Relative to the release and to the target; a safe release path.
  JournalEntryKind kind = JournalEntryKind::Install;
  std::uint64_t size = 0;           // Of the release file, in bytes; 0 for Delete.
  std::string sha256{};             // Of the release file, 64 lower-case digits; zeros for Delete.
  bool baseline_exists = false;     // The target held a regular file here before.
  std::uint64_t baseline_size = 0;  // Its size; 0 if there was none.
  std::uint64_t baseline_hash = 0;  // Its Fnv1a64; 0 if there was none.
};

// A directory of the target that the plan found missing.
struct JournalDirectory {
  Path path;  // A safe release path.
};

struct TransactionJournal {
  std::uint64_t generation = 0;  // The number of the last save.
  TransactionPhase phase = TransactionPhase::None;
  Path target;                 // The installation directory, absolute.
  std::uint64_t backup = 0;    // Entries that are backed up, where there is something.
  std::uint64_t apply = 0;     // Entries that are applied.
  std::uint64_t rollback = 0;  // Entries that are restored.
  TransactionIntent intent = TransactionIntent::None;
  // The index of the entry that `intent` speaks of; may be stale while it is None.
  std::uint64_t intent_entry = 0;
  std::string error;  // The failure of the transaction; any bytes.
  std::vector<JournalEntry> entries;
  std::vector<JournalDirectory> directories;
};

}  // namespace tolvarine::updater
