// Direct access to the disks of a simulated computer, for tests: it sets files up and reads them
// back. These functions are not calls of the platform: they are not counted, cannot be made to fail
// and see no access checks.
//
// A path is full, with `\` or `/`. Functions that make something also make missing parents. What
// they make stands in the cache like anything else until DiskSet::Settle. A setup that is not
// possible is a mistake of the test and throws std::logic_error.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/handles.h"
#include "simulated_windows/disk_set.h"
#include "simulated_windows/path_resolution.h"

namespace tolvarine::updater::simulated {

class FileSystem;

struct EntryInfo {
  std::uint32_t attributes = 0;
  std::uint32_t links = 0;
  std::string content;
};

class DiskEditor {
 public:
  DiskEditor(DiskSet& disks, FileSystem& files) : disks_(disks), files_(files) {}

  void MakeDirectory(std::u16string_view path);
  void WriteFile(std::u16string_view path, std::string_view content);
  void MakeHardLink(std::u16string_view existing, std::u16string_view path);
  void MakeSymbolicLink(std::u16string_view path, std::u16string_view to, bool directory);
  void MakeJunction(std::u16string_view path, std::u16string_view to);
  void MakeReparsePoint(std::u16string_view path, std::uint32_t tag, bool directory);
  void SetAttributes(std::u16string_view path, std::uint32_t attributes);
  void Rename(std::u16string_view from, std::u16string_view to);
  void Remove(std::u16string_view path);  // A whole tree; links are not followed. May be missing.

  // Links in the middle of the path are followed, one at its end is not.
  [[nodiscard]] std::optional<EntryInfo> Look(std::u16string_view path) const;
  [[nodiscard]] bool Exists(std::u16string_view path) const { return Look(path).has_value(); }
  [[nodiscard]] std::optional<std::string> ReadFile(std::u16string_view path) const;
  // Every path below, files and directories (these end in `\`), in order; content where a file.
  [[nodiscard]] std::map<std::u16string, std::string> Tree(std::u16string_view root) const;

  // Another process opens a file and keeps it open until Release. kInvalidHandle if it may not.
  platform::Handle Hold(std::u16string_view path, std::uint32_t access, std::uint32_t sharing);
  void Release(platform::Handle held);

 private:
  [[nodiscard]] Resolved ResolveNewName(std::u16string_view path);
  NodeRef Make(std::u16string_view path, CreateChange change);

  DiskSet& disks_;
  FileSystem& files_;
};

}  // namespace tolvarine::updater::simulated
