#include "release/list_size.h"

#include <string>

#include "lists/release_path.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kHeaderSize = 3;
constexpr std::size_t kPunctuation = 3;  // Two colons and the newline.

}  // namespace

std::size_t ListSizeOf(const SourceInventory& rows) {
  std::size_t size = kHeaderSize;
  for (const SourceInventoryEntry& row : rows) {
    size += 2 * GenericUtf8Path(row.path).size() + std::to_string(row.size).size() +
            row.sha256.size() + kPunctuation;
  }
  return size;
}

std::size_t ListSizeOf(const ManagedDeletionList& paths) {
  std::size_t size = kHeaderSize;
  for (const Path& path : paths) size += 2 * GenericUtf8Path(path).size() + 1;
  return size;
}

}  // namespace tolvarine::updater::application
