#include "simulated_windows/file_system.h"

#include <algorithm>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/disk_set.h"
#include "simulated_windows/rights.h"

namespace tolvarine::updater::simulated {
namespace {

constexpr platform::Handle kHandleStep = 4;

// The attributes that a caller can set on a file.
constexpr std::uint32_t kSettableAttributes = 0x27;  // Read-only, hidden, system, archive.

bool Reads(std::uint32_t access) { return (access & (kFileReadData | kFileExecute)) != 0; }
bool Writes(std::uint32_t access) {
  return (access & (kFileWriteData | platform::kFileAppendData)) != 0;
}
bool Deletes(std::uint32_t access) { return (access & platform::kDelete) != 0; }

// True where a handle that shares like this does not allow another one with this access.
bool Excluded(std::uint32_t access, std::uint32_t sharing) {
  return (Reads(access) && (sharing & platform::kFileShareRead) == 0) ||
         (Writes(access) && (sharing & platform::kFileShareWrite) == 0) ||
         (Deletes(access) && (sharing & platform::kFileShareDelete) == 0);
}

// A handle for attributes alone is compatible with every other.
bool TakesPartInSharing(std::uint32_t access) {
  return Reads(access) || Writes(access) || Deletes(access);
}

platform::FindData RecordOf(const Node& node, std::u16string name) {
  return {.attributes = node.attributes,
          .reparse_tag = node.reparse_tag,
          .size = node.Size(),
          .name = std::move(name)};
}

}  // namespace

Volume& FileSystem::VolumeOf(NodeRef node) const { return disks_.volumes[node.volume]; }

const Node& FileSystem::NodeOf(NodeRef node) const { return VolumeOf(node).node(node.id); }

// --- Opening -------------------------------------------------------------------------------------

bool FileSystem::ConflictsWithOpenFiles(NodeRef node, std::uint32_t access,
                                        std::uint32_t sharing) const {
  if (!TakesPartInSharing(access)) return false;
  return std::ranges::any_of(handles_, [&](const auto& item) {
    const OpenFile& other = item.second;
    return other.node == node && TakesPartInSharing(other.access) &&
           (Excluded(access, other.sharing) || Excluded(other.access, sharing));
  });
}

bool FileSystem::IsOpen(NodeRef node) const {
  return std::ranges::any_of(handles_, [&](const auto& item) { return item.second.node == node; });
}

bool FileSystem::IsPending(const EntryName& name) const {
  return pending_.contains(name) || std::ranges::any_of(handles_, [&](const auto& item) {
           return item.second.posix_delete && item.second.name == name;
         });
}

// The code with which an existing node cannot be opened as requested, or 0.
std::uint32_t FileSystem::CheckOpen(const OpenRequest& request, const Resolved& found,
                                    std::uint32_t access) const {
  const Node& node = NodeOf(found.node);
  const bool truncates = request.disposition == platform::kCreateAlways;
  if (IsPending(found.name())) return platform::kErrorAccessDenied;
  if (request.disposition == platform::kCreateNew) return kErrorFileExists;
  if (node.IsDirectory()) {
    const bool backup = (request.flags & platform::kFileFlagBackupSemantics) != 0;
    if (!backup || truncates) return platform::kErrorAccessDenied;
  } else if ((node.attributes & platform::kFileAttributeReadonly) != 0 &&
             (Writes(access) || truncates)) {
    return platform::kErrorAccessDenied;
  }
  if (VolumeOf(found.node).write_protected && (Writes(access) || Deletes(access) || truncates)) {
    return kErrorWriteProtect;
  }
  return ConflictsWithOpenFiles(found.node, access, request.sharing)
             ? platform::kErrorSharingViolation
             : 0;
}

// Makes a file or a directory under a name that is free.
std::uint32_t FileSystem::CreateAt(const Resolved& missing, std::uint32_t attributes,
                                   NodeRef* created) {
  Volume& volume = VolumeOf(missing.directory);
  if (volume.write_protected) return kErrorWriteProtect;
  const NodeId id = volume.Create(
      {.directory = missing.directory.id, .spelling = missing.spelling, .attributes = attributes});
  *created = {missing.directory.volume, id};
  return 0;
}

FileSystem::Opened FileSystem::Open(const OpenRequest& request) {
  const bool keep_link = (request.flags & platform::kFileFlagOpenReparsePoint) != 0;
  Resolved found = Resolve(disks_, request.path, keep_link ? LastLink::kKeep : LastLink::kFollow);
  const std::uint32_t access = SpecificRights(request.access);
  const std::uint32_t attributes =
      (request.flags & kSettableAttributes) | platform::kFileAttributeArchive;
  const bool exists = found.code == 0;
  const bool creates = request.disposition != platform::kOpenExisting;
  std::uint32_t code = found.code;
  if (exists) {
    code = CheckOpen(request, found, access);
  } else if (code == platform::kErrorFileNotFound && creates) {
    code = found.trailing_separator ? platform::kErrorInvalidName
                                    : CreateAt(found, attributes, &found.node);
  }
  if (code != 0) return {.code = code};
  if (exists && request.disposition == platform::kCreateAlways) {
    VolumeOf(found.node).Apply(AttributesChange{found.node.id, attributes});
    VolumeOf(found.node).Resize(found.node.id, 0);
  }
  const platform::Handle handle = NextHandle();
  handles_[handle] = {.node = found.node,
                      .name = found.name(),
                      .access = access,
                      .sharing = request.sharing,
                      .path = std::u16string(request.path)};
  return {.handle = handle, .code = exists && creates ? platform::kErrorAlreadyExists : 0};
}

std::size_t FileSystem::open_handles() const {
  const auto own =
      std::ranges::count_if(handles_, [](const auto& item) { return !item.second.foreign; });
  return static_cast<std::size_t>(own) + searches_.size();
}

std::vector<platform::Handle> FileSystem::HandlesOn(NodeRef node) const {
  std::vector<platform::Handle> handles;
  for (const auto& [handle, file] : handles_) {
    if (file.node == node) handles.push_back(handle);
  }
  return handles;
}

OpenFile* FileSystem::Find(platform::Handle handle) {
  const auto file = handles_.find(handle);
  return file == handles_.end() ? nullptr : &file->second;
}

bool FileSystem::Close(platform::Handle handle) {
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return false;
  const OpenFile file = std::move(found->second);
  handles_.erase(found);
  const bool pending = pending_.contains(file.name);
  if (file.posix_delete || (pending && !IsOpen(file.node))) {
    pending_.erase(file.name);
    Unlink(file.name, file.node);
  } else if (!IsOpen(file.node) && NodeOf(file.node).links == 0) {
    VolumeOf(file.node).Forget(file.node.id);
  }
  return true;
}

void FileSystem::Unlink(const EntryName& name, NodeRef node) {
  Volume& volume = VolumeOf(node);
  volume.Apply(UnlinkChange{name.directory.id, name.folded});
  if (volume.node(node.id).links == 0 && !IsOpen(node)) volume.Forget(node.id);
}

platform::Handle FileSystem::NextHandle() {
  next_handle_ += kHandleStep;
  return next_handle_;
}

platform::Handle FileSystem::AddSearch(Search search) {
  const platform::Handle handle = NextHandle();
  searches_[handle] = std::move(search);
  return handle;
}

Search* FileSystem::FindSearch(platform::Handle handle) {
  const auto search = searches_.find(handle);
  return search == searches_.end() ? nullptr : &search->second;
}

bool FileSystem::CloseSearch(platform::Handle handle) { return searches_.erase(handle) != 0; }

void FileSystem::Reset() {
  handles_.clear();
  searches_.clear();
  pending_.clear();
}

// --- Open files ----------------------------------------------------------------------------------

std::uint32_t FileSystem::Read(OpenFile& file, void* buffer, std::uint32_t size,
                               std::uint32_t* read) {
  *read = 0;
  if (!Reads(file.access)) return platform::kErrorAccessDenied;
  const std::string& content = *NodeOf(file.node).content;
  if (file.position >= content.size()) return 0;
  *read = static_cast<std::uint32_t>(std::min<std::uint64_t>(size, content.size() - file.position));
  content.copy(static_cast<char*>(buffer), *read, file.position);
  file.position += *read;
  return 0;
}

std::uint32_t FileSystem::Write(OpenFile& file, std::string_view bytes) {
  if (!Writes(file.access)) return platform::kErrorAccessDenied;
  Volume& volume = VolumeOf(file.node);
  const std::uint64_t size = NodeOf(file.node).Size();
  const bool append_only = (file.access & kFileWriteData) == 0;
  const std::uint64_t offset = append_only ? size : file.position;
  const std::uint64_t end = offset + bytes.size();
  const bool limited = volume.capacity != ~std::uint64_t{0};
  if (limited && end > size && end - size > volume.FreeBytes()) return kErrorDiskFull;
  if (!bytes.empty()) volume.Write(file.node.id, offset, bytes);
  file.position = end;
  return 0;
}

std::uint32_t FileSystem::Flush(const OpenFile& file) {
  if (!Writes(file.access)) return platform::kErrorAccessDenied;
  VolumeOf(file.node).Flush(file.node.id);
  return 0;
}

std::uint32_t FileSystem::Dispose(OpenFile& file, bool remove, bool posix, bool ignore_readonly) {
  if (!Deletes(file.access)) return platform::kErrorAccessDenied;
  if (!remove) {
    pending_.erase(file.name);
    file.posix_delete = false;
    return 0;
  }
  const Node& node = NodeOf(file.node);
  const bool readonly = (node.attributes & platform::kFileAttributeReadonly) != 0;
  if (readonly && !ignore_readonly) return platform::kErrorAccessDenied;
  if (file.node.id == kRootNode) return platform::kErrorAccessDenied;
  if (!node.entries.empty()) return platform::kErrorDirNotEmpty;
  if (posix) {
    file.posix_delete = true;
  } else {
    pending_[file.name] = file.node;
  }
  return 0;
}

std::uint32_t FileSystem::SetAttributes(const OpenFile& file, std::uint32_t attributes) {
  if ((file.access & platform::kFileWriteAttributes) == 0) return platform::kErrorAccessDenied;
  if (attributes == 0) return 0;
  const std::uint32_t kept = NodeOf(file.node).attributes & ~kSettableAttributes;
  VolumeOf(file.node).Apply(
      AttributesChange{file.node.id, kept | (attributes & kSettableAttributes)});
  return 0;
}

std::optional<std::u16string> FileSystem::FinalPath(const OpenFile& file, bool by_device) const {
  const Volume& volume = VolumeOf(file.node);
  std::u16string names;
  NodeRef directory = file.name.directory;
  std::u16string name = file.name.folded;
  while (directory.id != kNoNode && volume.Has(directory.id)) {
    const DirectoryEntry* entry = volume.Find(directory.id, name);
    if (entry == nullptr) break;
    names.insert(0, u"\\" + entry->spelling);
    if (directory.id == kRootNode) break;
    const NodeId parent = volume.node(directory.id).parent;
    for (const auto& [folded, sibling] : volume.node(parent).entries) {
      if (sibling.node == directory.id) name = folded;
    }
    directory.id = parent;
  }
  if (names.empty()) names = u"\\";
  if (by_device) return volume.device + names;
  if (volume.drive != 0) return u"\\\\?\\" + std::u16string(1, volume.drive) + u":" + names;
  if (!volume.share.empty()) return u"\\\\?\\UNC" + volume.share.substr(1) + names;
  return std::nullopt;
}

// --- Paths ---------------------------------------------------------------------------------------

Resolved FileSystem::LookUp(std::u16string_view path) const {
  Resolved found = Resolve(disks_, path, LastLink::kKeep);
  if (found.code == 0 && IsPending(found.name())) found.code = platform::kErrorAccessDenied;
  return found;
}

std::uint32_t FileSystem::Delete(std::u16string_view path) {
  const Resolved found = LookUp(path);
  if (found.code != 0) return found.code;
  if (NodeOf(found.node).IsDirectory()) return platform::kErrorAccessDenied;
  const Opened opened = Open({.path = path,
                              .access = platform::kDelete,
                              .sharing = platform::kFileShareAll,
                              .flags = platform::kFileFlagOpenReparsePoint});
  if (opened.code != 0) return opened.code;
  const std::uint32_t code =
      Dispose(*Find(opened.handle), true, VolumeOf(found.node).posix_delete, false);
  Close(opened.handle);
  return code;
}

// The code with which `from` cannot take the name of `to`, or 0.
std::uint32_t FileSystem::CheckReplacement(const Resolved& from, const Resolved& to,
                                           std::uint32_t flags) const {
  if (from.directory.volume != to.directory.volume) return kErrorNotSameDevice;
  if (to.code == platform::kErrorFileNotFound || from.name() == to.name()) return 0;
  if ((flags & platform::kMovefileReplaceExisting) == 0) return platform::kErrorAlreadyExists;
  const Node& replaced = NodeOf(to.node);
  const bool refused = replaced.IsDirectory() || NodeOf(from.node).IsDirectory() ||
                       (replaced.attributes & platform::kFileAttributeReadonly) != 0 ||
                       IsOpen(to.node) || IsPending(to.name());
  return refused ? platform::kErrorAccessDenied : 0;
}

std::uint32_t FileSystem::Move(std::u16string_view from_path, std::u16string_view to_path,
                               std::uint32_t flags) {
  const Resolved from = LookUp(from_path);
  if (from.code != 0) return from.code;
  const Resolved to = Resolve(disks_, to_path, LastLink::kKeep);
  if (to.code != 0 && to.code != platform::kErrorFileNotFound) return to.code;
  Volume& volume = VolumeOf(from.node);
  if (volume.write_protected) return kErrorWriteProtect;
  if (ConflictsWithOpenFiles(from.node, platform::kDelete, platform::kFileShareAll)) {
    return platform::kErrorSharingViolation;
  }
  if (const std::uint32_t code = CheckReplacement(from, to, flags); code != 0) return code;
  volume.Apply(RenameChange{from.directory.id, from.spelling, to.directory.id, to.spelling});
  if (to.code == 0 && to.node != from.node && NodeOf(to.node).links == 0) {
    volume.Forget(to.node.id);
  }
  for (auto& [handle, file] : handles_) {
    if (file.name == from.name()) file.name = to.name();
  }
  const bool through = (flags & platform::kMovefileWriteThrough) != 0;
  if (through && disks_.write_through_holds) volume.Force();
  return 0;
}

std::uint32_t FileSystem::MakeDirectory(std::u16string_view path) {
  if (LimitedLength(disks_, path) > kMaxDirectoryPath) return kErrorFilenameExcedRange;
  const Resolved found = Resolve(disks_, path, LastLink::kKeep);
  if (found.code == 0 || (found.code == platform::kErrorInvalidName && found.node.id != kNoNode)) {
    return platform::kErrorAlreadyExists;
  }
  if (found.code != platform::kErrorFileNotFound) return found.code;
  NodeRef created;
  return CreateAt(found, platform::kFileAttributeDirectory, &created);
}

std::uint32_t FileSystem::MakeHardLink(std::u16string_view existing, std::u16string_view path) {
  const Resolved from = LookUp(existing);
  if (from.code != 0) return from.code;
  const Resolved to = Resolve(disks_, path, LastLink::kKeep);
  if (to.code == 0) return platform::kErrorAlreadyExists;
  if (to.code != platform::kErrorFileNotFound) return to.code;
  if (NodeOf(from.node).IsDirectory()) return platform::kErrorAccessDenied;
  VolumeOf(from.node).Apply(LinkChange{from.node.id, to.directory.id, to.spelling});
  return 0;
}

FileSystem::Listing FileSystem::List(std::u16string_view pattern) const {
  constexpr std::u16string_view kWildcards = u"*?<>\"";
  const std::size_t start = pattern.find_last_of(u"\\/:") + 1;
  const std::u16string_view name = pattern.substr(start);
  // Windows answers 2 for a pattern that ends in a separator, although the directory exists.
  if (name.empty()) return {.code = platform::kErrorFileNotFound};
  if (LimitedLength(disks_, pattern) > kMaxPath) return {.code = platform::kErrorPathNotFound};
  const std::u16string_view within = start == 0 ? u"." : pattern.substr(0, start);
  const Resolved found = Resolve(disks_, within, LastLink::kFollow);
  // `within` ends in a separator, so that a missing directory is a missing last name to Resolve.
  const bool missing = found.code == platform::kErrorFileNotFound;
  if (missing) return {.code = platform::kErrorPathNotFound};
  // Resolve answers 123 for a file that is followed by a separator; a search answers 267.
  if (found.code == platform::kErrorInvalidName && found.node.id != kNoNode) {
    return {.code = platform::kErrorDirectory};
  }
  if (found.code != 0) return {.code = found.code};
  if (name == u"*") return ListDirectory(found.node);
  // The program uses no pattern but "*", so that no other one is implemented.
  const bool is_pattern = name.find_first_of(kWildcards) != std::u16string::npos;
  if (is_pattern) return {.code = platform::kErrorFileNotFound};
  // Resolve and not LookUp: a search also finds a name that is being deleted.
  const Resolved one = Resolve(disks_, pattern, LastLink::kKeep);
  if (one.code != 0) return {.code = one.code};
  const DirectoryEntry* entry = VolumeOf(one.node).Find(one.directory.id, one.spelling);
  return {.records = {RecordOf(NodeOf(one.node), entry->spelling)}};
}

FileSystem::Listing FileSystem::ListDirectory(NodeRef node) const {
  Listing listing;
  const Node& directory = NodeOf(node);
  // A volume's root directory lies in no other one, so that it has no "." and "..".
  if (node.id != kRootNode) {
    listing.records.push_back(RecordOf(directory, u"."));
    listing.records.push_back(RecordOf(directory, u".."));
  }
  for (const auto& [folded, entry] : directory.entries) {
    listing.records.push_back(RecordOf(VolumeOf(node).node(entry.node), entry.spelling));
  }
  if (listing.records.empty()) listing.code = platform::kErrorFileNotFound;
  return listing;
}

}  // namespace tolvarine::updater::simulated
