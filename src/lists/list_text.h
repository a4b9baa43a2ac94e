// What the two authenticated lists have in common: their limits, the keys by which their rows are
// told apart and sorted, and a text of lines in which each list has exactly one spelling.

#pragma once

#include <algorithm>
#include <cstddef>
#include <exception>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lists/release_path.h"
#include "text/error_text.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

inline constexpr std::size_t kListRowLimit = 1000;
inline constexpr std::size_t kListPathByteLimit = 1024;   // Of UTF-8, for one path.
inline constexpr std::size_t kListTextByteLimit = 24576;  // The header included.

// True for a path that a list may hold: safe, and not too long. Throws SystemError as
// IsSafeReleasePath does.
[[nodiscard]] bool IsListablePath(PathView path);

// The rows of a list with the comparison keys of their paths. Each key is taken once: the platform
// may fail to map a text now and not a moment later, and a sort that took keys anew would then see
// two orders.
template <typename Row>
class KeyedRows {
 public:
  // Throws std::runtime_error with the text `duplicate` for a key that is there already.
  void Add(Row row, PathView path, const char* duplicate) {
    std::u16string key = PathCompareKey(path);
    if (!keys_.insert(key).second) throw std::runtime_error(duplicate);
    rows_.push_back({std::move(key), std::move(row)});
  }

  // True where a row has the key of `path`.
  [[nodiscard]] bool Contains(PathView path) const { return keys_.contains(PathCompareKey(path)); }

  // The rows in the strict order `before` of their keys. Call it last: the rows are moved out.
  template <typename Before>
  [[nodiscard]] std::vector<Row> Sorted(Before before) {
    std::ranges::sort(rows_, before, &KeyedRow::key);
    std::vector<Row> sorted;
    sorted.reserve(rows_.size());
    for (KeyedRow& row : rows_) sorted.push_back(std::move(row.row));
    return sorted;
  }

 private:
  struct KeyedRow {
    std::u16string key;
    Row row;
  };

  std::set<std::u16string> keys_;
  std::vector<KeyedRow> rows_;
};

// Walks the lines of a serialized list behind its header. Any fault throws std::runtime_error with
// the text `malformed`.
class ListLines {
 public:
  // Checks the text's length and its header; `text` and `malformed` must outlive the walk.
  ListLines(std::string_view text, std::string_view header, const char* malformed);

  // The next line, never empty, without its newline; nothing at the end of the text.
  [[nodiscard]] std::optional<std::string_view> Next();

 private:
  std::string_view rest_;
  const char* malformed_;
};

// Runs `parse` and answers whether it came to its end. What it throws of the standard hierarchy
// goes into `error`, if there is one, which is cleared first.
template <typename Parse>
[[nodiscard]] bool ParseCatching(std::string* error, Parse parse) {
  if (error != nullptr) error->clear();
  try {
    parse();
    return true;
  } catch (const std::exception& failure) {
    StoreErrorText(error, failure.what());
    return false;
  }
}

}  // namespace tolvarine::updater
