// Shared parts of the two authenticated lists: their limits, rows that are sorted by keys, and the
// parsing of their texts.

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

// True for a path that a list may hold: safe, and at most 1024 bytes long. Throws SystemError as
// IsSafeReleasePath does.
[[nodiscard]] bool IsListablePath(PathView path);

// The rows of a list with the comparison keys of their paths. Each key is computed once. The
// platform may map a text in one call and fail to in the next, so a sort that computed keys anew
// could compare the same two rows in two ways.
template <typename Row>
class KeyedRows {
 public:
  // Throws std::runtime_error with the text `duplicate` if another row has the same key.
  void Add(Row row, PathView path, const char* duplicate) {
    std::u16string key = PathCompareKey(path);
    if (!keys_.insert(key).second) throw std::runtime_error(duplicate);
    rows_.push_back({std::move(key), std::move(row)});
  }

  // True if a row has the key of `path`.
  [[nodiscard]] bool Contains(PathView path) const { return keys_.contains(PathCompareKey(path)); }

  // Moves the rows out, in the strict order `before` of their keys.
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

// The lines of a serialized list after its header. Throws std::runtime_error with the text
// `malformed` for a text that is not made of such lines.
class ListLines {
 public:
  // Checks the text's length and its header. `text` and `malformed` must outlive this object.
  ListLines(std::string_view text, std::string_view header, const char* malformed);

  // The next line, never empty, without its newline; nothing at the end of the text.
  [[nodiscard]] std::optional<std::string_view> Next();

 private:
  std::string_view rest_;
  const char* malformed_;
};

// Runs `parse` and returns true if it does not throw a std::exception. Otherwise stores the
// exception's text in `error`, unless that is null; `error` is cleared first.
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
