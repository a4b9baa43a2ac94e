#include "simulated_windows/disk_editor.h"

#include <stdexcept>
#include <utility>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::simulated {
namespace {

void Expect(bool condition, const char* what) {
  if (!condition) throw std::logic_error(what);
}

void RemoveNode(Volume& volume, NodeId directory, const std::u16string& name) {
  const NodeId id = volume.Find(directory, name)->node;
  const DirectoryEntries entries = volume.node(id).entries;
  for (const auto& [folded, entry] : entries) RemoveNode(volume, id, folded);
  volume.Apply(UnlinkChange{directory, name});
}

void Collect(const Volume& volume, NodeId directory, const std::u16string& prefix,
             std::map<std::u16string, std::string>& tree) {
  for (const auto& [folded, entry] : volume.node(directory).entries) {
    const Node& node = volume.node(entry.node);
    const std::u16string path = prefix + entry.spelling;
    if (node.IsDirectory()) {
      tree[path + u"\\"] = {};
      Collect(volume, entry.node, path + u"\\", tree);
    } else {
      tree[path] = *node.content;
    }
  }
}

}  // namespace

// Resolves the name of something to be made, and makes its parent directories.
Resolved DiskEditor::ResolveNewName(std::u16string_view path) {
  Resolved place = Resolve(disks_, path, LastLink::kKeep);
  if (place.code == platform::kErrorPathNotFound) {
    MakeDirectory(path.substr(0, path.find_last_of(u"\\/")));
    place = Resolve(disks_, path, LastLink::kKeep);
  }
  return place;
}

NodeRef DiskEditor::Make(std::u16string_view path, CreateChange change) {
  const Resolved place = ResolveNewName(path);
  Expect(place.code == platform::kErrorFileNotFound, "the name is taken or not possible");
  change.directory = place.directory.id;
  change.spelling = place.spelling;
  return {place.directory.volume, disks_.volumes[place.directory.volume].Create(std::move(change))};
}

void DiskEditor::MakeDirectory(std::u16string_view path) {
  const Resolved place = ResolveNewName(path);
  if (place.code == 0) return;
  Make(path, {.attributes = platform::kFileAttributeDirectory});
}

void DiskEditor::WriteFile(std::u16string_view path, std::string_view content) {
  Resolved place = ResolveNewName(path);
  NodeRef node = place.node;
  if (place.code != 0) node = Make(path, {.attributes = platform::kFileAttributeArchive});
  Volume& volume = disks_.volumes[node.volume];
  volume.Resize(node.id, 0);
  if (!content.empty()) volume.Write(node.id, 0, content);
}

void DiskEditor::MakeHardLink(std::u16string_view existing, std::u16string_view path) {
  static_cast<void>(ResolveNewName(path));
  Expect(files_.MakeHardLink(existing, path) == 0, "the hard link cannot be made");
}

void DiskEditor::MakeSymbolicLink(std::u16string_view path, std::u16string_view to,
                                  bool directory) {
  const std::uint32_t kind = directory ? platform::kFileAttributeDirectory : 0;
  Make(path, {.attributes = kind | platform::kFileAttributeReparsePoint,
              .reparse_tag = platform::kIoReparseTagSymlink,
              .reparse_target = std::u16string(to)});
}

void DiskEditor::MakeJunction(std::u16string_view path, std::u16string_view to) {
  Make(path,
       {.attributes = platform::kFileAttributeDirectory | platform::kFileAttributeReparsePoint,
        .reparse_tag = platform::kIoReparseTagMountPoint,
        .reparse_target = std::u16string(to)});
}

void DiskEditor::MakeReparsePoint(std::u16string_view path, std::uint32_t tag, bool directory) {
  const std::uint32_t kind = directory ? platform::kFileAttributeDirectory : 0;
  Make(path, {.attributes = kind | platform::kFileAttributeReparsePoint, .reparse_tag = tag});
}

void DiskEditor::SetAttributes(std::u16string_view path, std::uint32_t attributes) {
  const Resolved found = Resolve(disks_, path, LastLink::kKeep);
  Expect(found.code == 0, "nothing to set attributes of");
  disks_.volumes[found.node.volume].Apply(AttributesChange{found.node.id, attributes});
}

void DiskEditor::Rename(std::u16string_view from, std::u16string_view to) {
  static_cast<void>(ResolveNewName(to));
  Expect(files_.Move(from, to, platform::kMovefileReplaceExisting) == 0, "cannot be renamed");
}

void DiskEditor::Remove(std::u16string_view path) {
  const Resolved found = Resolve(disks_, path, LastLink::kKeep);
  if (found.code != 0) return;
  RemoveNode(disks_.volumes[found.node.volume], found.directory.id, found.spelling);
}

std::optional<EntryInfo> DiskEditor::Look(std::u16string_view path) const {
  const Resolved found = Resolve(disks_, path, LastLink::kKeep);
  if (found.code != 0) return std::nullopt;
  const Node& node = disks_.volumes[found.node.volume].node(found.node.id);
  return EntryInfo{node.attributes, node.links, node.content ? *node.content : std::string()};
}

std::optional<std::string> DiskEditor::ReadFile(std::u16string_view path) const {
  const Resolved found = Resolve(disks_, path, LastLink::kFollow);
  if (found.code != 0) return std::nullopt;
  const Node& node = disks_.volumes[found.node.volume].node(found.node.id);
  if (node.IsDirectory()) return std::nullopt;
  return *node.content;
}

std::map<std::u16string, std::string> DiskEditor::Tree(std::u16string_view root) const {
  std::map<std::u16string, std::string> tree;
  const Resolved found = Resolve(disks_, root, LastLink::kFollow);
  if (found.code != 0) return tree;
  Collect(disks_.volumes[found.node.volume], found.node.id, {}, tree);
  return tree;
}

platform::Handle DiskEditor::Hold(std::u16string_view path, std::uint32_t access,
                                  std::uint32_t sharing) {
  const platform::Handle held = files_
                                    .Open({.path = path,
                                           .access = access,
                                           .sharing = sharing,
                                           .flags = platform::kFileFlagBackupSemantics})
                                    .handle;
  if (OpenFile* const file = files_.Find(held)) file->foreign = true;
  return held;
}

void DiskEditor::Release(platform::Handle held) { files_.Close(held); }

}  // namespace tolvarine::updater::simulated
