#include "update/fixed_subset.h"

#include <map>
#include <stdexcept>

#include "files/file_operations.h"
#include "files/fingerprint.h"
#include "lists/release_path.h"
#include "state/request.h"

namespace tolvarine::updater::application {
namespace {

// Whether a listed file is the one that the transaction found when it began.
bool IsBaseline(const Path& target, const JournalEntry& entry) {
  const Path path = JoinPath(target, entry.path);
  const FileKind kind = QueryLinkStatus(path).kind;
  if (kind == FileKind::not_found) return !entry.baseline_exists;
  if (kind != FileKind::regular || !entry.baseline_exists) return false;
  if (QueryFileSize(path).size != entry.baseline_size) return false;
  try {
    return Fnv1aOfFile(path) == entry.baseline_hash;
  } catch (const std::runtime_error&) {
    return true;  // Just now it cannot be read; the updater itself compares it again.
  }
}

}  // namespace

std::optional<FixedSubset> FixedSubsetOf(const UpdatePaths& paths, const WorkspaceReport& report) {
  FixedSubset subset;
  if (!report.journal) {
    LoadedRequest loaded = LoadRequest(paths);
    if (loaded.state != RecordState::Sound) return std::nullopt;
    return FixedSubset{std::move(loaded.request.inventory), std::move(loaded.request.deletions)};
  }
  for (const JournalEntry& entry : report.journal->entries) {
    if (entry.kind == JournalEntryKind::Install) {
      subset.inventory.push_back({entry.path, entry.size, entry.sha256});
    } else {
      subset.deletions.push_back(entry.path);
    }
  }
  return subset;
}

Path FindDeviation(const Path& target, const WorkspaceReport& report, const FixedSubset& subset,
                   const Difference& fresh, bool with_deletions) {
  std::map<std::u16string, std::string> sha256_of;  // By key; empty for a deletion.
  for (const SourceInventoryEntry& row : subset.inventory) {
    sha256_of.emplace(PathCompareKey(row.path), row.sha256);
  }
  for (const Path& path : subset.deletions) sha256_of.emplace(PathCompareKey(path), std::string());
  const auto holds = [&](const Path& path, const std::string& sha256) {
    const auto found = sha256_of.find(PathCompareKey(path));
    return found != sha256_of.end() && found->second == sha256;
  };
  for (const SourceInventoryEntry& row : fresh.changed) {
    if (!holds(row.path, row.sha256)) return row.path;
  }
  if (with_deletions) {
    for (const Path& path : fresh.deletions) {
      if (!holds(path, {})) return path;
    }
  }
  if (report.journal) {
    for (const JournalEntry& entry : report.journal->entries) {
      if (!IsBaseline(target, entry)) return entry.path;
    }
  }
  return {};
}

}  // namespace tolvarine::updater::application
