// The disks of the simulated Windows: what is on them now, and what would still be on them if the
// power went now.
//
// A volume keeps two images of itself. `live` is what every call sees. `stable` is what has been
// forced to the medium; between the two stands the metadata log, the changes of names, attributes
// and sizes in the order in which they were made. The rules, which are those of a volume with a
// metadata journal:
//
//  - A change of metadata reaches the medium in its order. After a power cut any prefix of the log
//    may be there; Force() puts all of it there.
//  - A rename replaces in one step or has not happened: it is one change.
//  - The content of a file reaches the medium when the file is flushed. Content written since then
//    may be there wholly, partly (by sectors of 512 bytes) or not at all, and reads as zeros where
//    the size, which is metadata, runs ahead of it.
//  - Each volume keeps its own order; nothing orders one volume against another.
//
// Nothing here knows about handles, sharing or paths; see file_system.h.

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

// A name in a directory. The key that it stands under is its folded form.
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
  std::uint32_t links = 0;          // The number of names that lead here.
  Bytes content;                    // Of a file.

  [[nodiscard]] bool IsDirectory() const;
  [[nodiscard]] bool IsReparsePoint() const;
  [[nodiscard]] std::uint64_t Size() const { return content ? content->size() : 0; }
};

using Nodes = std::map<NodeId, Node>;

// The changes of metadata. Each applies to an image as a whole or not at all.
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

// Replaces what stands at the new name, if anything does.
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

// Cuts the content off or lets it grow by zeros.
struct SizeChange {
  NodeId id = kNoNode;
  std::uint64_t size = 0;
};

using Change = std::variant<CreateChange, LinkChange, UnlinkChange, RenameChange, AttributesChange,
                            SizeChange>;

// How a power cut treats one unflushed file. Sector i of the content is there when keep[i % size]
// is true; where it is not, the medium holds its older content, or zeros.
struct ContentSurvival {
  std::vector<bool> keep;
};

class Volume {
 public:
  Volume();

  // What the volume is called. A volume has a drive letter, or a server and share, or neither; its
  // device name always stands.
  char16_t drive = 0;
  std::u16string share;   // `\\server\share`
  std::u16string device;  // `\Device\HarddiskVolume3`

  bool posix_delete = true;                    // Answers FileDispositionInfoEx.
  bool write_protected = false;                // Every change fails with 19.
  std::uint64_t capacity = ~std::uint64_t{0};  // Bytes of content that fit.

  [[nodiscard]] const Nodes& nodes() const { return live_; }
  [[nodiscard]] const Node& node(NodeId id) const { return live_.at(id); }
  [[nodiscard]] bool Has(NodeId id) const { return live_.contains(id); }
  // The entry of a directory under this name, in any case; null if there is none.
  [[nodiscard]] const DirectoryEntry* Find(NodeId directory, std::u16string_view name) const;
  [[nodiscard]] std::uint64_t FreeBytes() const;

  // A change of metadata: at once in what calls see, on the medium once it is forced. A node whose
  // last name goes stays until Forget, since a handle may hold it. Create chooses the new id.
  NodeId Create(CreateChange change);
  void Apply(const Change& change);
  void Forget(NodeId id);

  // A change of content. Growth of the file is a change of metadata of its own.
  void Write(NodeId id, std::uint64_t offset, std::string_view bytes);
  void Resize(NodeId id, std::uint64_t size);

  // Puts the content of one file on the medium, and with it every change so far.
  void Flush(NodeId id);

  // Puts every change of metadata so far on the medium.
  void Force();

  // What a power cut can choose from: the changes that are not forced, and the files with content
  // that is not flushed.
  [[nodiscard]] const std::vector<Change>& unforced() const { return log_; }
  [[nodiscard]] std::vector<NodeId> UnflushedFiles() const;

  // Leaves what a power cut leaves: the first `changes` of the unforced, and of each unflushed file
  // what `survival` keeps of it (all of it where nothing is said).
  void CutPower(std::size_t changes, const std::map<NodeId, ContentSurvival>& survival);

  // Puts everything on the medium.
  void Settle();

  // Rises with everything that changes what stands here or what a power cut could leave.
  [[nodiscard]] std::uint64_t version() const { return version_; }

 private:
  void AddUnflushed(NodeId id);

  Nodes live_;
  Nodes stable_;
  std::vector<Change> log_;
  // Files with unflushed content, and the length of the log when that content was begun: a shorter
  // prefix shows the file as it was before.
  std::map<NodeId, std::size_t> unflushed_;
  NodeId next_id_ = kRootNode + 1;
  std::uint64_t version_ = 0;
};

// The name under which two spellings are one on a case-insensitive volume.
std::u16string FoldName(std::u16string_view name);

}  // namespace tolvarine::updater::simulated
