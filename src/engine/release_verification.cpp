#include "engine/release_verification.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "lists/release_path.h"
#include "platform/files.h"

namespace tolvarine::updater {
namespace {

constexpr char kInventoryMismatch[] =
    "Authenticated source inventory does not match transaction journal";
constexpr char kDeletionMismatch[] =
    "Authenticated managed deletion list does not match transaction journal";

// A file of the tree or of the inventory. Unlike the keys of the lists, this key is case-sensitive:
// the spellings must be equal. Both sides are sorted so that they can be compared.
struct TreeItem {
  std::string key;  // GenericUtf8Path of the path below the root.
  std::uint64_t size = 0;

  bool operator==(const TreeItem&) const = default;
  bool operator<(const TreeItem& other) const {
    return std::tie(key, size) < std::tie(other.key, other.size);
  }
};

// Throws `refusal` for a reparse point of any kind. Checks the attribute, since FileKind
// distinguishes only some kinds. Throws SystemError if the attributes cannot be read.
void RefuseReparsePoint(const Path& path, const char* refusal) {
  const std::uint32_t attributes = platform::GetFileAttributesW(path.c_str());
  if (attributes == platform::kInvalidFileAttributes) ThrowLastError();
  if ((attributes & platform::kFileAttributeReparsePoint) != 0) throw std::runtime_error(refusal);
}

// Adds the entry to `items` if it is a file. Throws for anything that a release must not contain.
// Returns the code if the size cannot be queried, otherwise 0.
std::uint32_t CollectItem(const Path& source_root, const TreeEntry& entry,
                          std::vector<TreeItem>& items) {
  const Path relative = LexicallyNormal(LexicallyRelative(entry.path, source_root));
  if (!IsSafeReleasePath(relative)) throw std::runtime_error("Unsafe release path");
  RefuseReparsePoint(entry.path, "Release source contains a reparse point");
  const FileKind kind = KindOf(entry);
  if (kind == FileKind::directory) return 0;
  if (kind != FileKind::regular) {
    throw std::runtime_error("Release source contains a non-regular entry");
  }
  const FileSize size = entry.size_known ? FileSize{entry.size, 0} : QueryFileSize(entry.path);
  if (size.error == 0) items.push_back({GenericUtf8Path(relative), size.size});
  return size.error;
}

std::vector<TreeItem> ActualItems(const Path& source_root) {
  std::vector<TreeItem> items;
  const std::uint32_t code = EnumerateTree(
      source_root, [&](const TreeEntry& entry) { return CollectItem(source_root, entry, items); });
  if (code != 0) throw SystemError(code);
  std::sort(items.begin(), items.end());
  return items;
}

std::vector<TreeItem> ExpectedItems(const SourceInventory& inventory) {
  std::vector<TreeItem> items;
  for (const SourceInventoryEntry& row : inventory) {
    items.push_back({GenericUtf8Path(row.path), row.size});
  }
  std::sort(items.begin(), items.end());
  return items;
}

bool SameSpelling(const Path& a, const Path& b) { return GenericUtf8Path(a) == GenericUtf8Path(b); }

bool SameRow(const JournalEntry& entry, const SourceInventoryEntry& row) {
  return SameSpelling(entry.path, row.path) && entry.size == row.size && entry.sha256 == row.sha256;
}

}  // namespace

void VerifyReleaseTree(const Path& source_root, const SourceInventory& inventory) {
  RefuseReparsePoint(source_root, "Release source root is a reparse point");
  const std::vector<TreeItem> actual = ActualItems(source_root);
  if (actual != ExpectedItems(inventory)) {
    throw std::runtime_error("Release source tree does not exactly match authenticated inventory");
  }
  VerifyReleaseContents(source_root, inventory);
}

void VerifyReleaseContents(const Path& source_root, const SourceInventory& inventory) {
  for (const SourceInventoryEntry& row : inventory) {
    const Path path = SafeJoin(source_root, row.path, "release source");
    const LockedReleaseFile file(path);
    if (!MatchesRelease(file, row.size, row.sha256)) {
      ThrowAboutPath("Release source does not match authenticated inventory: ", path);
    }
  }
}

void VerifyListsAgainstJournal(const SourceInventory& inventory,
                               const ManagedDeletionList& deletions,
                               const TransactionJournal& journal) {
  const auto installs = static_cast<std::size_t>(
      std::ranges::count(journal.entries, JournalEntryKind::Install, &JournalEntry::kind));
  if (installs != inventory.size()) throw std::runtime_error(kInventoryMismatch);
  if (journal.entries.size() - installs != deletions.size()) {
    throw std::runtime_error(kDeletionMismatch);
  }
  auto row = inventory.begin();
  auto deletion = deletions.begin();
  for (const JournalEntry& entry : journal.entries) {
    if (entry.kind == JournalEntryKind::Delete) {
      if (!SameSpelling(entry.path, *deletion++)) throw std::runtime_error(kDeletionMismatch);
    } else if (!SameRow(entry, *row++)) {
      throw std::runtime_error(kInventoryMismatch);
    }
  }
}

}  // namespace tolvarine::updater
