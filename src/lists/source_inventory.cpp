#include "lists/source_inventory.h"

#include <cstddef>
#include <stdexcept>
#include <utility>

#include "lists/list_text.h"
#include "lists/release_path.h"
#include "text/decimal.h"
#include "text/hex.h"

namespace tolvarine::updater {
namespace {

constexpr std::string_view kHeader = "I1\n";
constexpr char kMalformedText[] = "Malformed serialized source inventory";
constexpr char kMalformedRow[] = "Authenticated source inventory is malformed";
constexpr char kDuplicate[] = "Authenticated source inventory contains duplicate paths";

bool IsValidRow(const SourceInventoryEntry& row) {
  return IsListablePath(row.path) && IsLowerHex64(std::string_view(row.sha256));
}

// Parses "path:size:digest". The digest is validated with the row.
SourceInventoryEntry ParseRow(std::string_view line) {
  constexpr std::size_t kNone = std::string_view::npos;
  const std::size_t first = line.find(':');
  const std::size_t second = first == kNone ? kNone : line.find(':', first + 1);
  if (second == kNone || line.find(':', second + 1) != kNone) {
    throw std::runtime_error(kMalformedText);
  }
  const auto path = DecodeHex(line.substr(0, first));
  const auto size = ParseDecimal<std::uint64_t>(line.substr(first + 1, second - first - 1));
  if (!path || !size) throw std::runtime_error(kMalformedText);
  return {PathFromUtf8(*path), *size, std::string(line.substr(second + 1))};
}

SourceInventory ParseRows(std::string_view text) {
  SourceInventory rows;
  ListLines lines(text, kHeader, kMalformedText);
  while (const auto line = lines.Next()) {
    rows.push_back(ParseRow(*line));
    if (rows.size() > kListRowLimit) {
      throw std::runtime_error("Serialized source inventory has too many entries");
    }
  }
  return rows;
}

void AppendRow(std::string& text, const SourceInventoryEntry& row) {
  AppendHex(text, GenericUtf8Path(row.path));
  text.push_back(':');
  AppendDecimal(text, row.size);
  text.push_back(':');
  text.append(row.sha256);
  text.push_back('\n');
}

}  // namespace

SourceInventory NormalizeSourceInventory(const SourceInventory& rows) {
  if (rows.empty()) throw std::runtime_error("Authenticated source inventory is missing");
  if (rows.size() > kListRowLimit) {
    throw std::runtime_error("Authenticated source inventory has too many entries");
  }
  KeyedRows<SourceInventoryEntry> keyed;
  for (const SourceInventoryEntry& row : rows) {
    if (!IsValidRow(row)) throw std::runtime_error(kMalformedRow);
    keyed.Add(row, row.path, kDuplicate);
  }
  const std::u16string application = PathCompareKey(kApplicationKeyText);
  return keyed.Sorted([&](const std::u16string& a, const std::u16string& b) {
    return ReleaseKeyBefore(a, b, application);
  });
}

std::string SerializeSourceInventory(const SourceInventory& rows) {
  std::string text(kHeader);
  for (const SourceInventoryEntry& row : NormalizeSourceInventory(rows)) {
    AppendRow(text, row);
    if (text.size() > kListTextByteLimit) {
      throw std::runtime_error("Serialized source inventory exceeds 24 KiB");
    }
  }
  return text;
}

bool ParseSourceInventory(std::string_view text, SourceInventory& inventory, std::string* error) {
  return ParseCatching(error, [&] {
    SourceInventory rows = NormalizeSourceInventory(ParseRows(text));
    if (SerializeSourceInventory(rows) != text) {
      throw std::runtime_error("Serialized source inventory is not canonical");
    }
    inventory = std::move(rows);
  });
}

}  // namespace tolvarine::updater
