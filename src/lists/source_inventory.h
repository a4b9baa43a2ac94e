// The source inventory: the authenticated list of a release's files with their sizes and digests.
// The staged files must match it exactly.
//
// Its text is made of lines that end in 0x0A: the header "I1", then for each file its path as UTF-8
// with `/` as separator, in hexadecimal form, its size in decimal and its digest, separated by
// colons:
//
//     I1
//     62696e2f636f72652e646c6c:5:2cf24dba5fb0a30e26e83b2ac5b9e29e1b161e5c1fa7425e73043362938b9824
//
// The lines are in ascending order of the paths' keys (see PathCompareKey), with the application's
// executable last. A list has exactly one text: every text that parses is the one that
// SerializeSourceInventory writes for its rows.

#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// One release file.
struct SourceInventoryEntry {
  Path path;               // Relative to the release.
  std::uint64_t size = 0;  // In bytes.
  std::string sha256;      // As 64 lower-case hexadecimal digits.
};

using SourceInventory = std::vector<SourceInventoryEntry>;

// The rows, validated and in order: 1 to 1000 of them, paths safe and of at most 1024 bytes of
// UTF-8, digests well-formed, no two paths with the same key. Throws std::runtime_error for rows
// that violate one of these rules, and SystemError for a lone surrogate in a path without a root
// name.
[[nodiscard]] SourceInventory NormalizeSourceInventory(const SourceInventory& rows);

// The text of the normalized rows. Throws what normalizing throws, and std::runtime_error for a
// text of more than 24576 bytes.
[[nodiscard]] std::string SerializeSourceInventory(const SourceInventory& rows);

// Returns true and stores the normalized rows in `inventory` if `text` is the text of a list.
// Otherwise leaves `inventory` unchanged and stores the reason in `error`, unless that is null. A
// text of more than 24576 bytes is refused. Throws nothing that derives from std::exception.
[[nodiscard]] bool ParseSourceInventory(std::string_view text, SourceInventory& inventory,
                                        std::string* error);

}  // namespace tolvarine::updater
