// The properties of both lists. A list can be written in one way only: a text that the parser
// accepts is, byte for byte, the text that the serializer writes for its rows.

#pragma once

#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_text.h"

namespace tolvarine::updater::fuzz {

// One of the two lists: its row type and the functions on it.
template <typename Row>
struct ListKind {
  bool (*parse)(std::string_view, std::vector<Row>&, std::string*);
  std::string (*serialize)(const std::vector<Row>&);
  std::u16string (*path)(const Row&);
  Row (*row)(const std::u16string& path);  // The other members have valid values.
  bool application_last;
};

// Two ASCII paths name the same file if their keys are the same.
inline std::u16string AsciiKey(std::u16string_view path) {
  std::u16string key;
  for (const char16_t unit : path) {
    const char16_t lower = unit >= u'A' && unit <= u'Z' ? static_cast<char16_t>(unit + 32) : unit;
    const char16_t uniform = lower == u'\\' ? u'/' : lower;
    if (uniform != u'/' || key.empty() || key.back() != u'/') key.push_back(uniform);
  }
  return key;
}

// Accepted rows have plain paths, in order, each of them once.
template <typename Row>
void ExpectValidRows(const ListKind<Row>& kind, const std::vector<Row>& rows) {
  const auto place = [&](const Row& row) {
    const std::u16string key = AsciiKey(kind.path(row));
    return std::pair(kind.application_last && key == u"tolvarine.exe", key);
  };
  const auto ascii = [&](const Row& row) {
    return std::ranges::all_of(kind.path(row), [](char16_t unit) { return unit < 0x80; });
  };
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::u16string path = kind.path(rows[i]);
    Expect("a listed path is plain", IsPlainPath(path), path);
    if (i == 0 || !ascii(rows[i - 1]) || !ascii(rows[i])) continue;
    Expect("rows are in order", place(rows[i - 1]) < place(rows[i]), path);
  }
}

// Returns whether the text is accepted.
template <typename Row>
bool ExpectOneSpelling(const ListKind<Row>& kind, std::string_view text) {
  std::vector<Row> rows(3, kind.row(u"of an earlier list"));
  std::string error = "of an earlier list";
  const bool accepted = kind.parse(text, rows, &error);
  ExpectSame("a refusal has an error text", error.empty(), accepted, text);
  if (!accepted) {
    Expect("a refused text leaves the rows as they were",
           rows.size() == 3 && kind.path(rows[2]) == u"of an earlier list", text);
    return false;
  }
  Expect("a text keeps the limits", text.size() <= 24576 && rows.size() <= 1000, text);
  ExpectSame("an accepted text is what is written for its rows", kind.serialize(rows), text);
  std::ranges::reverse(rows);
  ExpectSame("the order of the rows does not matter", kind.serialize(rows), text);
  std::ranges::reverse(rows);
  ExpectValidRows(kind, rows);
  return true;
}

// What the serializer writes is accepted. Each line of the input is a path.
template <typename Row>
void ExpectWrittenIsRead(const ListKind<Row>& kind, std::string_view bytes) {
  std::vector<Row> rows;
  for (const std::u16string& line : WideLines(bytes)) rows.push_back(kind.row(line));
  std::string text;
  try {
    text = kind.serialize(rows);
  } catch (const std::runtime_error&) {
    return;  // These paths cannot be listed.
  }
  Expect("what is written is read", ExpectOneSpelling(kind, std::string_view(text)), text);
}

template <typename Row>
void ExpectListProperties(const ListKind<Row>& kind, std::string_view bytes) {
  UseComputer();
  ExpectOneSpelling(kind, bytes);
  ExpectWrittenIsRead(kind, bytes);
}

}  // namespace tolvarine::updater::fuzz
