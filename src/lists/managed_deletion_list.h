// The managed deletion list: the authenticated list of the old installation's files that an update
// removes. It may be empty.
//
// Its text is made of lines that end in 0x0A: the header "D1", then for each file the hex form of
// its path as UTF-8 with `/` as separator, in ascending order of the keys (see PathCompareKey). The
// application's executable has no place of its own here:
//
//     D1
//     62696e2f6f6c642e646c6c
//
// A list has one spelling: a text that parses is what SerializeManagedDeletionList writes.

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
// two with the same key, none with the key of a row of `inventory` (an empty one turns that test
// off; its rows are not validated). Throws std::runtime_error for paths that break one of these
// rules, and SystemError for a lone surrogate in one without a root name.
[[nodiscard]] ManagedDeletionList NormalizeManagedDeletionList(const ManagedDeletionList& paths,
                                                               const SourceInventory& inventory);

// The text of the paths, normalized without an inventory. Throws what normalizing throws, and
// std::runtime_error for a text of more than 24576 bytes.
[[nodiscard]] std::string SerializeManagedDeletionList(const ManagedDeletionList& paths);

// Refuses a text of more than 24576 bytes. On success `list` holds the normalized paths; on failure it
// is as it was, and `error`, if given, says why. Throws nothing of the standard hierarchy. Whether
// the list overlaps a release is left to whoever holds both.
[[nodiscard]] bool ParseManagedDeletionList(std::string_view text, ManagedDeletionList& list,
                                            std::string* error);

}  // namespace tolvarine::updater
