#include "files/enumeration.h"

#include <string_view>
#include <utility>

#include "platform/error_codes.h"
#include "platform/handles.h"

namespace tolvarine::updater {
namespace {

bool IsDotName(std::u16string_view name) { return name == u"." || name == u".."; }

std::uint32_t UnlessEndOfDirectory(std::uint32_t code) {
  return code == platform::kErrorNoMoreFiles ? 0 : code;
}

// The code for a directory whose first record could not be read. The root of a volume has no "."
// and "..", so an empty root has no first record and answers with ERROR_FILE_NOT_FOUND.
std::uint32_t OpeningFailure(const Path& directory) {
  const std::uint32_t code = platform::GetLastError();
  if (code == platform::kErrorFileNotFound && QueryStatus(directory).kind == FileKind::directory) {
    return 0;
  }
  return UnlessEndOfDirectory(code);
}

TreeEntry EntryOf(const Path& directory, const platform::FindData& record) {
  const bool reparse_point = (record.attributes & platform::kFileAttributeReparsePoint) != 0;
  return {.path = JoinPath(directory, record.name),
          .attributes = record.attributes,
          .reparse_tag = reparse_point ? record.reparse_tag : 0,
          .size = record.size,
          .size_known = !reparse_point};
}

}  // namespace

FileKind KindOf(const TreeEntry& entry) {
  return KindOfAttributes(entry.attributes, entry.reparse_tag);
}

DirectorySearch::DirectorySearch(const Path& directory) : directory_(directory) {
  const Path pattern = JoinPath(directory, u"*");
  search_ = FindHandle(platform::FindFirstFileExW(pattern.c_str(), platform::kFindExInfoBasic,
                                                  &record_, platform::kFindExSearchNameMatch, 0));
  if (!search_) code_ = OpeningFailure(directory);
}

std::optional<TreeEntry> DirectorySearch::Next() {
  while (Advance()) {
    if (!IsDotName(record_.name)) return EntryOf(directory_, record_);
  }
  return std::nullopt;
}

bool DirectorySearch::Advance() {
  if (!search_) return false;
  if (std::exchange(record_is_new_, false)) return true;
  if (platform::FindNextFileW(search_.get(), &record_)) return true;
  code_ = UnlessEndOfDirectory(platform::GetLastError());
  search_.Reset();
  return false;
}

std::uint32_t EnumerateDirectory(const Path& directory, const EntryVisitor& visit) {
  DirectorySearch search(directory);
  while (const std::optional<TreeEntry> entry = search.Next()) {
    const std::uint32_t code = visit(*entry);
    if (code != 0) return code;
  }
  return search.code();
}

std::uint32_t EnumerateTree(const Path& root, const EntryVisitor& visit) {
  OpenSearches open;
  open.Enter(root);
  while (open.depth() != 0) {
    if (const std::optional<TreeEntry> entry = open.innermost().Next()) {
      const std::uint32_t code = visit(*entry);
      if (code != 0) return code;
      if (KindOf(*entry) == FileKind::directory) open.Enter(entry->path);
    } else {
      const std::uint32_t code = open.innermost().code();
      if (code != 0) return code;
      open.Leave();
    }
  }
  return 0;
}

}  // namespace tolvarine::updater
