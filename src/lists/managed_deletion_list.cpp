#include "lists/managed_deletion_list.h"

#include <functional>
#include <stdexcept>
#include <utility>

#include "lists/list_text.h"
#include "lists/release_path.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr std::string_view kHeader = "D1\n";
constexpr char kMalformedText[] = "Malformed serialized managed deletion list";
constexpr char kMalformedPath[] = "Authenticated managed deletion list is malformed";
constexpr char kDuplicate[] = "Authenticated managed deletion list contains duplicate paths";

ManagedDeletionList ParsePaths(std::string_view text) {
  ManagedDeletionList paths;
  ListLines lines(text, kHeader, kMalformedText);
  while (const auto line = lines.Next()) {
    const auto path = DecodeHex(*line);
    if (!path) throw std::runtime_error(kMalformedText);
    paths.push_back(PathFromUtf8(*path));
    if (paths.size() > kListRowLimit) {
      throw std::runtime_error("Serialized managed deletion list has too many paths");
    }
  }
  return paths;
}

}  // namespace

ManagedDeletionList NormalizeManagedDeletionList(const ManagedDeletionList& paths,
                                                 const SourceInventory& inventory) {
  if (paths.size() > kListRowLimit) {
    throw std::runtime_error("Authenticated managed deletion list has too many paths");
  }
  KeyedRows<Path> keyed;
  for (const Path& path : paths) {
    if (!IsListablePath(path)) throw std::runtime_error(kMalformedPath);
    keyed.Add(path, path, kDuplicate);
  }
  for (const SourceInventoryEntry& row : inventory) {
    if (keyed.Contains(row.path)) {
      throw std::runtime_error(
          "Authenticated managed deletion list overlaps the release inventory");
    }
  }
  return keyed.Sorted(std::less<>());
}

std::string SerializeManagedDeletionList(const ManagedDeletionList& paths) {
  std::string text(kHeader);
  for (const Path& path : NormalizeManagedDeletionList(paths, {})) {
    AppendHex(text, GenericUtf8Path(path));
    text.push_back('\n');
    if (text.size() > kListTextByteLimit) {
      throw std::runtime_error("Serialized managed deletion list exceeds 24 KiB");
    }
  }
  return text;
}

bool ParseManagedDeletionList(std::string_view text, ManagedDeletionList& list,
                              std::string* error) {
  return ParseCatching(error, [&] {
    ManagedDeletionList paths = NormalizeManagedDeletionList(ParsePaths(text), {});
    if (SerializeManagedDeletionList(paths) != text) {
      throw std::runtime_error("Serialized managed deletion list is not canonical");
    }
    list = std::move(paths);
  });
}

}  // namespace tolvarine::updater
