// Resolves the text of a path to a node of a volume by the rules of Windows: paths with a drive, a
// server, a device or the extended prefix, the limit of 260 units, forbidden names, and links.

#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {

struct DiskSet;

// A node of one of the computer's volumes.
struct NodeRef {
  std::size_t volume = 0;
  NodeId id = kNoNode;

  auto operator<=>(const NodeRef&) const = default;  // NOLINT(modernize-use-nullptr)
};

// A name in a directory, as FoldName returns it.
struct EntryName {
  NodeRef directory;
  std::u16string folded;

  auto operator<=>(const EntryName&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct Resolved {
  // 0: `node` exists; it has the name `spelling` in `directory`.
  // 2: only the last name is missing: `spelling` in `directory`.
  // 123 with a `node`: it is a file, and the path ends in a separator.
  // Any other code: the other members mean nothing.
  std::uint32_t code = 0;
  NodeRef node{};
  NodeRef directory{};
  std::u16string spelling{};
  bool trailing_separator = false;

  [[nodiscard]] EntryName name() const { return {directory, FoldName(spelling)}; }
};

// What happens to a link at the end of the path. Links before the end are always followed.
enum class LastLink { kFollow, kKeep };

[[nodiscard]] Resolved Resolve(const DiskSet& disks, std::u16string_view path, LastLink last);

// Whether a text can be one name of a path: 0 or 123.
[[nodiscard]] std::uint32_t CheckName(std::u16string_view name);

// The longest path without the extended prefix, and the longest one of a new directory, in units.
inline constexpr std::size_t kMaxPath = 259;
inline constexpr std::size_t kMaxDirectoryPath = 247;

// The length of the full path, which these limits apply to; 0 for one with the extended prefix.
[[nodiscard]] std::size_t LimitedLength(const DiskSet& disks, std::u16string_view path);

}  // namespace tolvarine::updater::simulated
