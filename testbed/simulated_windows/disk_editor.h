// Direct access to the disks of a simulated computer, for tests: it makes files and reads them
// back. These functions are not calls of the platform: they are not counted, no fault is injected
// into them, and no access is checked.
//
// A path is a full path, with `\` or `/`. Functions that make something also make missing parent
// directories. A power cut can lose what they make, until DiskSet::Settle. A setup that is not
// possible is an error in the test and throws std::logic_error.

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
  // A file or a whole tree, without following links. Does nothing where the path is missing.
  void Remove(std::u16string_view path);

  // Links in the middle of the path are followed, one at its end is not.
  [[nodiscard]] std::optional<EntryInfo> Look(std::u16string_view path) const;
  [[nodiscard]] bool Exists(std::u16string_view path) const { return Look(path).has_value(); }
  [[nodiscard]] std::optional<std::string> ReadFile(std::u16string_view path) const;
  // Every file below `root` with its content, and every directory, whose path ends in `\`, with
  // none. The paths are relative to `root`. Empty where it is missing.
  [[nodiscard]] std::map<std::u16string, std::string> Tree(std::u16string_view root) const;

  // Another process opens a file and has it open until Release. kInvalidHandle where the open
  // fails.
  platform::Handle Hold(std::u16string_view path, std::uint32_t access, std::uint32_t sharing);
  void Release(platform::Handle held);

 private:
  [[nodiscard]] Resolved ResolveNewName(std::u16string_view path);
  NodeRef Make(std::u16string_view path, CreateChange change);

  DiskSet& disks_;
  FileSystem& files_;
};

}  // namespace tolvarine::updater::simulated
