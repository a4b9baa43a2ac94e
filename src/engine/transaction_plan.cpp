#include "engine/transaction_plan.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>
#include <vector>

#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/fingerprint.h"
#include "journal/journal_text.h"
#include "lists/release_path.h"

namespace tolvarine::updater {
namespace {

void ThrowIfFailed(std::uint32_t error_code) {
  if (error_code != 0) throw SystemError(error_code);
}

// Returns the kind of the entry at a path. Absence is a result and not a failure; `error_code`
// receives the code of a query that fails otherwise, else 0.
FileKind QueryPresence(const Path& path, std::uint32_t& error_code) {
  const FileStatus status = QueryLinkStatus(path);
  const bool failed = status.error != 0 && !IsNoSuchFileOrDirectory(status.error);
  error_code = failed ? status.error : 0;
  return status.kind;
}

void PlanDeletions(const Path& target, const ManagedDeletionList& deletions,
                   TransactionJournal& journal, std::uint32_t& error_code) {
  for (const Path& path : deletions) {
    JournalEntry entry{.path = path, .kind = JournalEntryKind::Delete};
    entry.sha256 = kNoSha256;
    ProbeTargetEntry(target, entry, error_code);
    if (error_code != 0) return;
    journal.entries.push_back(std::move(entry));
  }
}

void PlanInstalls(const Path& target, const SourceInventory& inventory, TransactionJournal& journal,
                  std::uint32_t& error_code) {
  for (const SourceInventoryEntry& row : inventory) {
    JournalEntry entry{.path = row.path, .kind = JournalEntryKind::Install, .size = row.size};
    entry.sha256 = row.sha256;
    ProbeTargetEntry(target, entry, error_code);
    if (error_code != 0) return;
    CollectMissingParents(target, row.path, journal, error_code);
    if (error_code != 0) return;
    journal.entries.push_back(std::move(entry));
  }
}

// Only neighbours are compared, and the order is case-sensitive. Two spellings of one directory
// that are not neighbours, such as "A" and "a" with "B" between them, therefore both stay. The
// journal's reader refuses such a record: the transaction can be carried out by the run that
// planned it, but no later run can resume it, and neither cleanup nor finalization can load it.
void SortDirectories(std::vector<JournalDirectory>& directories) {
  std::ranges::sort(directories, DirectoryBefore);
  const auto same = [](const JournalDirectory& a, const JournalDirectory& b) {
    return SamePathKey(a.path, b.path);
  };
  directories.erase(std::unique(directories.begin(), directories.end(), same), directories.end());
}

}  // namespace

TransactionJournal PlanTransaction(const Path& /*source*/, const Path& target,
                                   const SourceInventory& inventory,
                                   const ManagedDeletionList& deletions) {
  TransactionJournal journal;
  journal.phase = TransactionPhase::Backup;
  journal.target = target;
  std::uint32_t error_code = 0;
  PlanDeletions(target, deletions, journal, error_code);
  ThrowIfFailed(error_code);
  PlanInstalls(target, inventory, journal, error_code);
  ThrowIfFailed(error_code);
  if (journal.entries.empty()) throw std::runtime_error("Release contains no files");
  SortDirectories(journal.directories);
  if (std::ranges::none_of(journal.entries, IsApplicationEntry)) {
    throw std::runtime_error("Release is missing Tolvarine.exe");
  }
  return journal;
}

void ProbeTargetEntry(const Path& target, JournalEntry& entry, std::uint32_t& error_code) {
  const Path path = SafeJoin(target, entry.path, "update target");
  const FileKind kind = QueryPresence(path, error_code);
  if (error_code != 0) return;
  entry.baseline_exists = false;
  entry.baseline_size = 0;
  entry.baseline_hash = 0;
  if (kind == FileKind::not_found) return;
  if (kind != FileKind::regular) {
    throw std::runtime_error("Update target entry is not a regular file");
  }
  entry.baseline_exists = true;
  const FileSize size = QueryFileSize(path);
  entry.baseline_size = size.size;
  error_code = size.error;
  if (error_code == 0) entry.baseline_hash = Fnv1aOfFile(path);
}

void CollectMissingParents(const Path& target, const Path& entry_path, TransactionJournal& journal,
                           std::uint32_t& error_code) {
  for (Path directory = ParentPath(entry_path); !directory.empty();
       directory = ParentPath(directory)) {
    const Path path = SafeJoin(target, directory, "update target parent");
    const FileKind kind = QueryPresence(path, error_code);
    if (error_code != 0) return;
    if (kind == FileKind::not_found) {
      journal.directories.push_back({directory});
      continue;
    }
    if (kind != FileKind::directory) {
      throw std::runtime_error("Update target parent is not a regular directory");
    }
    return;
  }
}

bool DirectoryBefore(const JournalDirectory& a, const JournalDirectory& b) {
  const std::size_t depth_a = Components(DividePath(a.path).relative).size();
  const std::size_t depth_b = Components(DividePath(b.path).relative).size();
  if (depth_a != depth_b) return depth_a > depth_b;
  return GenericUtf8Path(a.path) < GenericUtf8Path(b.path);
}

bool IsApplicationEntry(const JournalEntry& entry) {
  return entry.kind == JournalEntryKind::Install && SamePathKey(entry.path, kApplicationKeyText);
}

}  // namespace tolvarine::updater
