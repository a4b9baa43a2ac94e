#include "simulated_windows/volume.h"

#include <algorithm>
#include <utility>

#include "platform/files.h"
#include "simulated_windows/lower_case_table.h"

namespace tolvarine::updater::simulated {
namespace {

// Removes one name of a node. The node itself stays.
NodeId TakeName(Nodes& nodes, NodeId directory, std::u16string_view name) {
  DirectoryEntries& entries = nodes.at(directory).entries;
  const auto entry = entries.find(FoldName(name));
  const NodeId id = entry->second.node;
  entries.erase(entry);
  --nodes.at(id).links;
  return id;
}

void GiveName(Nodes& nodes, NodeId id, NodeId directory, const std::u16string& spelling) {
  nodes.at(directory).entries[FoldName(spelling)] = {spelling, id};
  Node& node = nodes.at(id);
  ++node.links;
  if (node.IsDirectory()) node.parent = directory;
}

void SetSize(Node& node, std::uint64_t size) {
  auto content =
      node.content ? std::make_shared<std::string>(*node.content) : std::make_shared<std::string>();
  content->resize(size, '\0');
  node.content = std::move(content);
}

// What a change does to an image.
struct Applier {
  Nodes& nodes;

  void operator()(const CreateChange& change) const {
    Node node;
    node.attributes = change.attributes;
    node.reparse_tag = change.reparse_tag;
    node.reparse_target = change.reparse_target;
    if (!node.IsDirectory()) node.content = std::make_shared<std::string>();
    nodes[change.id] = std::move(node);
    GiveName(nodes, change.id, change.directory, change.spelling);
  }
  void operator()(const LinkChange& change) const {
    GiveName(nodes, change.id, change.directory, change.spelling);
  }
  void operator()(const UnlinkChange& change) const {
    TakeName(nodes, change.directory, change.spelling);
  }
  void operator()(const RenameChange& change) const {
    const NodeId id = TakeName(nodes, change.from_directory, change.from);
    if (nodes.at(change.to_directory).entries.contains(FoldName(change.to))) {
      TakeName(nodes, change.to_directory, change.to);
    }
    GiveName(nodes, id, change.to_directory, change.to);
  }
  // The node may be missing: a file that has lost its last name is swept from the medium, and a
  // handle may still change it.
  void operator()(const AttributesChange& change) const {
    const auto node = nodes.find(change.id);
    if (node != nodes.end()) node->second.attributes = change.attributes;
  }
  void operator()(const SizeChange& change) const {
    const auto node = nodes.find(change.id);
    if (node != nodes.end()) SetSize(node->second, change.size);
  }
};

void ApplyTo(Nodes& nodes, const Change& change) { std::visit(Applier{nodes}, change); }

// Removes the nodes without a name: on the medium no handle keeps them.
void Sweep(Nodes& nodes) {
  std::erase_if(nodes,
                [](const auto& item) { return item.first != kRootNode && item.second.links == 0; });
}

// Copies the surviving sectors of `written` over the content in the image, whose size stays.
void Overlay(Node& node, const std::string& written, const ContentSurvival& survival) {
  auto content = std::make_shared<std::string>(*node.content);
  const std::size_t end = std::min(content->size(), written.size());
  for (std::size_t start = 0; start < end; start += kSectorSize) {
    const std::size_t sector = start / kSectorSize;
    if (!survival.keep.empty() && !survival.keep[sector % survival.keep.size()]) continue;
    const std::size_t length = std::min(kSectorSize, end - start);
    content->replace(start, length, written, start, length);
  }
  node.content = std::move(content);
}

}  // namespace

bool Node::IsDirectory() const { return (attributes & platform::kFileAttributeDirectory) != 0; }

bool Node::IsReparsePoint() const {
  return (attributes & platform::kFileAttributeReparsePoint) != 0;
}

Volume::Volume() {
  Node root;
  root.attributes = platform::kFileAttributeDirectory;
  root.parent = kRootNode;
  root.links = 1;
  live_[kRootNode] = root;
  stable_ = live_;
}

const DirectoryEntry* Volume::Find(NodeId directory, std::u16string_view name) const {
  const DirectoryEntries& entries = live_.at(directory).entries;
  const auto entry = entries.find(FoldName(name));
  return entry == entries.end() ? nullptr : &entry->second;
}

std::uint64_t Volume::FreeBytes() const {
  std::uint64_t used = 0;
  for (const auto& [id, node] : live_) used += node.Size();
  return capacity > used ? capacity - used : 0;
}

NodeId Volume::Create(CreateChange change) {
  change.id = next_id_++;
  Apply(change);
  return change.id;
}

void Volume::Apply(const Change& change) {
  ++version_;
  ApplyTo(live_, change);
  log_.push_back(change);
}

void Volume::Forget(NodeId id) {
  live_.erase(id);
  unflushed_.erase(id);
}

void Volume::AddUnflushed(NodeId id) { unflushed_.try_emplace(id, 0); }

void Volume::Resize(NodeId id, std::uint64_t size) {
  const bool shrinks = size < live_.at(id).Size();
  Apply(SizeChange{id, size});
  if (shrinks) unflushed_[id] = log_.size();
}

void Volume::Write(NodeId id, std::uint64_t offset, std::string_view bytes) {
  ++version_;
  if (offset + bytes.size() > live_.at(id).Size()) Resize(id, offset + bytes.size());
  Bytes& content = live_.at(id).content;
  if (content.use_count() > 1) content = std::make_shared<std::string>(*content);
  content->replace(offset, bytes.size(), bytes);
  AddUnflushed(id);
}

void Volume::Flush(NodeId id) {
  Force();
  const auto durable = stable_.find(id);
  if (durable != stable_.end()) {
    durable->second.content = std::make_shared<std::string>(*live_.at(id).content);
  }
  unflushed_.erase(id);
}

void Volume::Force() {
  ++version_;
  for (const Change& change : log_) ApplyTo(stable_, change);
  log_.clear();
  Sweep(stable_);
  for (auto& [id, since] : unflushed_) since = 0;
}

std::vector<NodeId> Volume::UnflushedFiles() const {
  std::vector<NodeId> files;
  files.reserve(unflushed_.size());
  for (const auto& [id, since] : unflushed_) files.push_back(id);
  return files;
}

void Volume::CutPower(std::size_t changes, const std::map<NodeId, ContentSurvival>& survival) {
  for (std::size_t i = 0; i < changes; ++i) ApplyTo(stable_, log_[i]);
  for (const auto& [id, since] : unflushed_) {
    const auto node = stable_.find(id);
    if (node == stable_.end() || changes < since) continue;
    const auto chosen = survival.find(id);
    Overlay(node->second, *live_.at(id).content,
            chosen == survival.end() ? ContentSurvival{} : chosen->second);
  }
  Sweep(stable_);
  live_ = stable_;
  log_.clear();
  unflushed_.clear();
}

void Volume::Settle() {
  Force();
  Sweep(live_);
  stable_ = live_;
  unflushed_.clear();
}

std::u16string FoldName(std::u16string_view name) {
  std::u16string folded(name);
  for (char16_t& unit : folded) {
    // The entries of a directory are listed in the order of their keys, and Windows lists ASCII
    // names in the order of their capitals: "_" follows "Z".
    if (unit < 0x80) {
      if (unit >= u'a' && unit <= u'z') unit = static_cast<char16_t>(unit - u'a' + u'A');
    } else {
      unit = static_cast<char16_t>(LowerCase(unit));
    }
  }
  return folded;
}

}  // namespace tolvarine::updater::simulated
