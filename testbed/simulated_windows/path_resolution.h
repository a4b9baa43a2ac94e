// From the text of a path to a node of a volume, by the rules of Windows: drive, server, device and
// extended forms, the limit of 260 units, forbidden names, and links on the way.

#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {

struct DiskSet;

// A node of one of the machine's volumes.
struct NodeRef {
  std::size_t volume = 0;
  NodeId id = kNoNode;

  auto operator<=>(const NodeRef&) const = default;  // NOLINT(modernize-use-nullptr)
};

// A name in a directory, in the folded form.
struct EntryName {
  NodeRef directory;
  std::u16string folded;

  auto operator<=>(const EntryName&) const = default;  // NOLINT(modernize-use-nullptr)
};

struct Resolved {
  // 0 where the node is there. 2 where all but the last name leads somewhere: `directory` and
  // `spelling` then tell where it would be. Any other code leaves the rest meaningless.
  std::uint32_t code = 0;
  NodeRef node{};
  NodeRef directory{};
  std::u16string spelling{};
  bool trailing_separator = false;

  [[nodiscard]] EntryName name() const { return {directory, FoldName(spelling)}; }
};

enum class LastLink { kFollow, kKeep };

[[nodiscard]] Resolved Resolve(const DiskSet& disks, std::u16string_view path, LastLink last);

// What Windows says of a text as one name of a path: 0 or 123.
[[nodiscard]] std::uint32_t CheckName(std::u16string_view name);

// The longest path without the extended prefix, and the longest one for a new directory, in units.
inline constexpr std::size_t kMaxPath = 259;
inline constexpr std::size_t kMaxDirectoryPath = 247;

// The whole length that a path has for those limits; 0 for one with the extended prefix.
[[nodiscard]] std::size_t LimitedLength(const DiskSet& disks, std::u16string_view path);

}  // namespace tolvarine::updater::simulated
