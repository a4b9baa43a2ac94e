// The managed deletion list: the authenticated list of the old installation's files that an update
// removes. It may be empty.
//
// Its text is made of lines that end in 0x0A: the header "D1", then for each file its path as UTF-8
// with `/` as separator, in hexadecimal form. The lines are in ascending order of the paths' keys
// (see PathCompareKey), the application's executable included:
//
//     D1
//     62696e2f6f6c642e646c6c
//
// A list has exactly one text: every text that parses is the one that SerializeManagedDeletionList
// writes for its paths.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Paths relative to the installation.
using ManagedDeletionList = std::vector<Path>;

// The paths, validated and in order: at most 1000, safe and of at most 1024 bytes of UTF-8, no
// two with the same key, none with the key of a row of `inventory`, whose rows are not validated.
// Throws std::runtime_error for paths that violate one of these rules, and SystemError for a lone
// surrogate in a path without a root name.
[[nodiscard]] ManagedDeletionList NormalizeManagedDeletionList(const ManagedDeletionList& paths,
                                                               const SourceInventory& inventory);

// The text of the paths, normalized without an inventory. Throws what normalizing throws, and
// std::runtime_error for a text of more than 24576 bytes.
[[nodiscard]] std::string SerializeManagedDeletionList(const ManagedDeletionList& paths);

// Returns true and stores the normalized paths in `list` if `text` is the text of a list. Otherwise
// leaves `list` unchanged and stores the reason in `error`, unless that is null. A text of more
// than 24576 bytes is refused. Throws nothing that derives from std::exception. It does not check
// whether the list overlaps a release: NormalizeManagedDeletionList does.
[[nodiscard]] bool ParseManagedDeletionList(std::string_view text, ManagedDeletionList& list,
                                            std::string* error);

}  // namespace tolvarine::updater
