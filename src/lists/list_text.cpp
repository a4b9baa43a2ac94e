#include "lists/list_text.h"

namespace tolvarine::updater {

bool IsListablePath(PathView path) {
  return IsSafeReleasePath(path) && GenericUtf8Path(path).size() <= kListPathByteLimit;
}

ListLines::ListLines(std::string_view text, std::string_view header, const char* malformed)
    : rest_(text), malformed_(malformed) {
  if (text.size() > kListTextByteLimit || !text.starts_with(header)) {
    throw std::runtime_error(malformed_);
  }
  rest_.remove_prefix(header.size());
}

std::optional<std::string_view> ListLines::Next() {
  if (rest_.empty()) return std::nullopt;
  const std::size_t newline = rest_.find('\n');
  if (newline == std::string_view::npos || newline == 0) throw std::runtime_error(malformed_);
  const std::string_view line = rest_.substr(0, newline);
  rest_.remove_prefix(newline + 1);
  return line;
}

}  // namespace tolvarine::updater
