#include "platform/simulated/world.h"

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/simulated/file_system.h"
#include "platform/simulated/objects.h"
#include "platform/simulated/path_resolution.h"

namespace tolvarine::updater::simulated {
namespace {

World* current_world = nullptr;

// What a call finds that can no longer be made. No code of a real failure.
constexpr std::uint32_t kNoPower = 0x2BAD;

bool EndsWithFolded(std::u16string_view text, std::u16string_view suffix) {
  return suffix.empty() || FoldName(text).ends_with(FoldName(suffix));
}

// A furnished world that does not come out as told is a mistake of whoever furnishes it.
void Expect(bool condition, const char* what) {
  if (!condition) throw std::logic_error(what);
}

}  // namespace

World::World()
    : files_(std::make_unique<FileSystem>(*this)),
      objects_(std::make_unique<KernelObjects>(*this)) {
  dead_fault_.code = kNoPower;
  AddVolume(u'C');
}

World::~World() {
  if (current_world == this) current_world = nullptr;
}

World& World::Current() {
  Expect(current_world != nullptr, "no world is current");
  return *current_world;
}

void World::MakeCurrent() { current_world = this; }

Volume& World::AddVolume(char16_t drive) {
  Volume& volume = volumes_.emplace_back();
  volume.drive = drive;
  volume.device = u"\\Device\\HarddiskVolume";
  volume.device.push_back(static_cast<char16_t>(u'0' + volumes_.size()));
  return volume;
}

Volume& World::volume(char16_t drive) {
  const auto found = std::ranges::find(volumes_, drive, &Volume::drive);
  Expect(found != volumes_.end(), "no such volume");
  return *found;
}

// --- Furnishing
// ------------------------------------------------------------------------------------

namespace {

// Where a name is to be made, with its parents.
Resolved Place(World& world, std::u16string_view path) {
  Resolved place = Resolve(world, path, LastLink::kKeep);
  if (place.code == platform::kErrorPathNotFound) {
    world.MakeDirectory(path.substr(0, path.find_last_of(u"\\/")));
    place = Resolve(world, path, LastLink::kKeep);
  }
  return place;
}

NodeRef Make(World& world, std::u16string_view path, CreateChange change) {
  const Resolved place = Place(world, path);
  Expect(place.code == platform::kErrorFileNotFound, "the place is taken, or cannot be");
  change.directory = place.directory.id;
  change.spelling = place.spelling;
  return {place.directory.volume,
          world.volumes()[place.directory.volume].Create(std::move(change))};
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

void World::MakeDirectory(std::u16string_view path) {
  const Resolved place = Place(*this, path);
  if (place.code == 0) return;
  Make(*this, path, {.attributes = platform::kFileAttributeDirectory});
}

void World::WriteFile(std::u16string_view path, std::string_view content) {
  Resolved place = Place(*this, path);
  NodeRef node = place.node;
  if (place.code != 0) node = Make(*this, path, {.attributes = platform::kFileAttributeArchive});
  Volume& volume = volumes_[node.volume];
  volume.Resize(node.id, 0);
  if (!content.empty()) volume.Write(node.id, 0, content);
}

void World::MakeHardLink(std::u16string_view existing, std::u16string_view path) {
  Place(*this, path);
  Expect(files_->MakeHardLink(existing, path) == 0, "the hard link cannot be made");
}

void World::MakeSymbolicLink(std::u16string_view path, std::u16string_view to, bool directory) {
  const std::uint32_t kind = directory ? platform::kFileAttributeDirectory : 0;
  Make(*this, path,
       {.attributes = kind | platform::kFileAttributeReparsePoint,
        .reparse_tag = platform::kIoReparseTagSymlink,
        .reparse_target = std::u16string(to)});
}

void World::MakeJunction(std::u16string_view path, std::u16string_view to) {
  Make(*this, path,
       {.attributes = platform::kFileAttributeDirectory | platform::kFileAttributeReparsePoint,
        .reparse_tag = platform::kIoReparseTagMountPoint,
        .reparse_target = std::u16string(to)});
}

void World::MakeReparsePoint(std::u16string_view path, std::uint32_t tag, bool directory) {
  const std::uint32_t kind = directory ? platform::kFileAttributeDirectory : 0;
  Make(*this, path,
       {.attributes = kind | platform::kFileAttributeReparsePoint, .reparse_tag = tag});
}

void World::SetAttributes(std::u16string_view path, std::uint32_t attributes) {
  const Resolved found = Resolve(*this, path, LastLink::kKeep);
  Expect(found.code == 0, "nothing to set attributes of");
  volumes_[found.node.volume].Apply(AttributesChange{found.node.id, attributes});
}

void World::Rename(std::u16string_view from, std::u16string_view to) {
  Place(*this, to);
  Expect(files_->Move(from, to, platform::kMovefileReplaceExisting) == 0, "cannot be renamed");
}

void World::Remove(std::u16string_view path) {
  const Resolved found = Resolve(*this, path, LastLink::kKeep);
  if (found.code != 0) return;
  RemoveNode(volumes_[found.node.volume], found.directory.id, found.spelling);
}

std::optional<EntryInfo> World::Look(std::u16string_view path) const {
  const Resolved found = Resolve(*this, path, LastLink::kKeep);
  if (found.code != 0) return std::nullopt;
  const Node& node = volumes_[found.node.volume].node(found.node.id);
  return EntryInfo{node.attributes, node.links, node.content ? *node.content : std::string()};
}

std::optional<std::string> World::ReadFile(std::u16string_view path) const {
  const Resolved found = Resolve(*this, path, LastLink::kFollow);
  if (found.code != 0) return std::nullopt;
  const Node& node = volumes_[found.node.volume].node(found.node.id);
  if (node.IsDirectory()) return std::nullopt;
  return *node.content;
}

std::map<std::u16string, std::string> World::Tree(std::u16string_view root) const {
  std::map<std::u16string, std::string> tree;
  const Resolved found = Resolve(*this, root, LastLink::kFollow);
  if (found.code != 0) return tree;
  Collect(volumes_[found.node.volume], found.node.id, {}, tree);
  return tree;
}

void World::Settle() {
  for (Volume& volume : volumes_) volume.Settle();
}

platform::Handle World::Hold(std::u16string_view path, std::uint32_t access,
                             std::uint32_t sharing) {
  const platform::Handle held = files_
                                    ->Open({.path = path,
                                            .access = access,
                                            .sharing = sharing,
                                            .flags = platform::kFileFlagBackupSemantics})
                                    .handle;
  if (OpenFile* const file = files_->Find(held)) file->foreign = true;
  return held;
}

void World::Release(platform::Handle held) { files_->Close(held); }

// --- Calls
// -----------------------------------------------------------------------------------------

const Fault* World::Enter(Call call, std::u16string_view path) {
  if (!dead_) {
    const CallRecord record{call, ++occurrences_[static_cast<std::size_t>(call)], ++calls_,
                            std::u16string(before_call || keep_trace ? path : u"")};
    if (keep_trace) trace.push_back(record);
    if (before_call) before_call(record);
  }
  if (dead_) {
    // A call of a destructor, and one on the way of another exception, cannot throw.
    if (IsRelease(call) || std::uncaught_exceptions() > 0) return &dead_fault_;
    throw PowerCut{};
  }
  for (Fault& fault : faults_) {
    if (fault.call != call || !EndsWithFolded(path, fault.path_suffix)) continue;
    const std::uint64_t occurrence = ++fault.seen;
    if (occurrence >= fault.first && occurrence - fault.first < fault.times) return &fault;
  }
  return nullptr;
}

void World::Restart() {
  files_->Reset();
  objects_->Reset();
  processes.clear();
  mutex_holders.clear();
  faults_.clear();
  trace.clear();
  boxes.clear();
  starts.clear();
  occurrences_.fill(0);
  calls_ = 0;
  elapsed_ms = 0;
  last_error = 0;
  dead_ = false;
}

void World::Boot(std::deque<Volume> disks) {
  volumes_ = std::move(disks);
  Restart();
}

std::uint64_t World::disk_version() const {
  std::uint64_t version = 0;
  for (const Volume& volume : volumes_) version += volume.version();
  return version;
}

}  // namespace tolvarine::updater::simulated
