// Enumerating what lies in a directory, or below it. See file_operations.h.

#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "files/status.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// One entry, as the record in its directory describes it.
struct TreeEntry {
  Path path;  // The enumerated directory joined with the names below it.
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;  // 0 unless the attributes say that it is a reparse point.
  std::uint64_t size = 0;         // In bytes; meaningless unless `size_known`.
  bool size_known = false;        // False for reparse points.
};

[[nodiscard]] FileKind KindOf(const TreeEntry& entry);

// Called for each entry. A code other than 0 ends the enumeration. So does an exception, which
// passes through.
using EntryVisitor = std::function<std::uint32_t(const TreeEntry&)>;

// Visits the entries of one directory. Returns 0 at the end, otherwise the code of the visitor or
// of the enumeration. Entries may have been visited before a failure.
[[nodiscard]] std::uint32_t EnumerateDirectory(const Path& directory, const EntryVisitor& visit);

// Visits everything below a root, each entry once, a directory before what lies in it. Symbolic
// links and junctions are visited and not entered. Returns as EnumerateDirectory does.
[[nodiscard]] std::uint32_t EnumerateTree(const Path& root, const EntryVisitor& visit);

// A search in one directory. It begins with the construction and ends after the last entry.
class DirectorySearch {
 public:
  explicit DirectorySearch(const Path& directory);

  // The next entry, without "." and ".."; nothing at the end or after a failure.
  [[nodiscard]] std::optional<TreeEntry> Next();

  // Once Next has given nothing: 0 at the end, otherwise the code of the failure.
  [[nodiscard]] std::uint32_t code() const { return code_; }

  [[nodiscard]] const Path& directory() const { return directory_; }

 private:
  [[nodiscard]] bool Advance();

  Path directory_;
  platform::FindData record_;
  FindHandle search_;
  bool record_is_new_ = true;  // The search begins with its first record.
  std::uint32_t code_ = 0;
};

// The open searches of a walk through a tree, outermost first. A list of its own instead of
// recursion: the depth of a tree is not bounded by the size of a call stack.
class OpenSearches {
 public:
  OpenSearches() = default;
  OpenSearches(const OpenSearches&) = delete;
  OpenSearches& operator=(const OpenSearches&) = delete;
  ~OpenSearches() {
    while (!searches_.empty()) Leave();  // Innermost first; a vector may destroy them in any order.
  }

  void Enter(const Path& directory) { searches_.emplace_back(directory); }
  void Leave() { searches_.pop_back(); }

  [[nodiscard]] std::size_t depth() const { return searches_.size(); }
  [[nodiscard]] DirectorySearch& innermost() { return searches_.back(); }

 private:
  std::vector<DirectorySearch> searches_;
};

}  // namespace tolvarine::updater
