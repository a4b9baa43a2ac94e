// A volume of the simulated Windows: what is on it now, and what a power cut can leave of that.
//
// A volume has two images. `live` is what every call sees; `stable` is what is on the medium. The
// metadata log is the difference between them: the changes of names, attributes and sizes that are
// not on the medium yet, in the order in which they were made. The rules are those of a file system
// with a metadata journal:
//
//  - Changes of metadata reach the medium in their order. A power cut leaves some prefix of the
//    log; Force() writes all of it.
//  - A rename is one change, also where it replaces a file.
//  - The content of a file is on the medium when the file has been flushed. A power cut leaves all,
//    some (by sectors of 512 bytes) or none of what was written since. The size is metadata: where
//    it reaches the medium before the content, the content is zeros.
//  - Each volume has its own order. There is none between changes of two volumes.
//
// Handles, sharing and paths are the subject of file_system.h.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace tolvarine::updater::simulated {

using NodeId = std::uint32_t;

// Content is shared between images and copied before it is changed.
using Bytes = std::shared_ptr<std::string>;

inline constexpr NodeId kNoNode = 0;
inline constexpr NodeId kRootNode = 1;
inline constexpr std::size_t kSectorSize = 512;

// A name in a directory. Its key in the directory is what FoldName returns for it.
struct DirectoryEntry {
  std::u16string spelling{};
  NodeId node = kNoNode;
};

using DirectoryEntries = std::map<std::u16string, DirectoryEntry>;

// A file or directory, apart from its names.
struct Node {
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
  std::u16string reparse_target{};  // Of a symbolic link (may be relative) or a junction.
  NodeId parent = kNoNode;          // Of a directory.
  DirectoryEntries entries;         // Of a directory.
  std::uint32_t links = 0;          // The number of names.
  Bytes content;                    // Of a file.

  [[nodiscard]] bool IsDirectory() const;
  [[nodiscard]] bool IsReparsePoint() const;
  [[nodiscard]] std::uint64_t Size() const { return content ? content->size() : 0; }
};

using Nodes = std::map<NodeId, Node>;

// The changes of metadata. Each of them is on an image as a whole or not at all.
struct CreateChange {
  NodeId id = kNoNode;
  NodeId directory = kNoNode;
  std::u16string spelling{};
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
  std::u16string reparse_target{};
};

struct LinkChange {
  NodeId id = kNoNode;
  NodeId directory = kNoNode;
  std::u16string spelling{};
};

struct UnlinkChange {
  NodeId directory = kNoNode;
  std::u16string spelling{};
};

// Replaces what has the new name, if anything does.
struct RenameChange {
  NodeId from_directory = kNoNode;
  std::u16string from{};
  NodeId to_directory = kNoNode;
  std::u16string to{};
};

struct AttributesChange {
  NodeId id = kNoNode;
  std::uint32_t attributes = 0;
};

// Truncates the content, or appends zeros.
struct SizeChange {
  NodeId id = kNoNode;
  std::uint64_t size = 0;
};

using Change = std::variant<CreateChange, LinkChange, UnlinkChange, RenameChange, AttributesChange,
                            SizeChange>;

// What a power cut leaves of one unflushed file. Where keep[i % keep.size()] is true, the new
// content of sector i is on the medium; where it is false, the older content or zeros are. An empty
// `keep` keeps every sector.
struct ContentSurvival {
  std::vector<bool> keep;
};

class Volume {
 public:
  Volume();

  // A volume has a drive letter, or a server and share, or neither. It always has a device name.
  char16_t drive = 0;
  std::u16string share;   // `\\server\share`
  std::u16string device;  // `\Device\HarddiskVolume3`

  std::u16string file_system = u"NTFS";
  std::uint32_t serial_number = 0;

  bool posix_delete = true;      // Supports FileDispositionInfoEx; FAT, for one, answers 87.
  bool attribute_tags = true;    // Supports FileAttributeTagInfo; FAT, for one, answers 87.
  bool write_protected = false;  // Every change fails with 19.
  std::uint64_t capacity = ~std::uint64_t{0};  // Bytes of content that fit.

  [[nodiscard]] const Node& node(NodeId id) const { return live_.at(id); }
  [[nodiscard]] bool Has(NodeId id) const { return live_.contains(id); }
  // The entry of a directory with this name in any case; null if there is none.
  [[nodiscard]] const DirectoryEntry* Find(NodeId directory, std::u16string_view name) const;
  [[nodiscard]] std::uint64_t FreeBytes() const;

  // Calls see a change of metadata at once; it is on the medium when it is forced. A node that has
  // lost its last name stays until Forget, since a handle may hold it. Create chooses the id.
  NodeId Create(CreateChange change);
  void Apply(const Change& change);
  void Forget(NodeId id);

  // Changes of content. Where the file grows, that is a change of metadata before it.
  void Write(NodeId id, std::uint64_t offset, std::string_view bytes);
  void Resize(NodeId id, std::uint64_t size);

  // Writes the content of one file to the medium, and every change of metadata so far.
  void Flush(NodeId id);

  // Writes every change of metadata so far to the medium.
  void Force();

  // What a power cut can lose: the changes that are not forced, and the content of the files that
  // are not flushed.
  [[nodiscard]] const std::vector<Change>& unforced() const { return log_; }
  [[nodiscard]] std::vector<NodeId> UnflushedFiles() const;

  // Both images become what a power cut leaves: of unforced() the first `changes`, and of each
  // unflushed file what `survival` keeps (all of it if the file is not in the map).
  void CutPower(std::size_t changes, const std::map<NodeId, ContentSurvival>& survival);

  // Writes everything to the medium.
  void Settle();

  // Rises with every change of the volume or of what a power cut could leave of it.
  [[nodiscard]] std::uint64_t version() const { return version_; }

 private:
  void AddUnflushed(NodeId id);

  Nodes live_;
  Nodes stable_;
  std::vector<Change> log_;
  // The files with unflushed content. Where a file was truncated before that content was written,
  // the number is the length of the log behind the truncation: a power cut that leaves fewer
  // changes leaves the file as it was before. Otherwise it is 0.
  std::map<NodeId, std::size_t> unflushed_;
  NodeId next_id_ = kRootNode + 1;
  std::uint64_t version_ = 0;
};

// The key of a name: two spellings with the same key are the same name.
std::u16string FoldName(std::u16string_view name);

}  // namespace tolvarine::updater::simulated
