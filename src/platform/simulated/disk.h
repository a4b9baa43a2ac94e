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
using Bytes = std::shared_ptr<const std::string>;

inline constexpr NodeId kNoNode = 0;
inline constexpr NodeId kRootNode = 1;
inline constexpr std::size_t kSectorSize = 512;

// A name in a directory. The key that it stands under is its folded form.
struct DirectoryEntry {
  std::u16string spelling;
  NodeId node = kNoNode;
};

using DirectoryEntries = std::map<std::u16string, DirectoryEntry>;

// A file or directory, apart from its names.
struct Node {
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
  std::u16string reparse_target;          // Of a symbolic link (may be relative) or a junction.
  NodeId parent = kNoNode;                // Of a directory.
  DirectoryEntries entries;               // Of a directory.
  std::uint32_t links = 0;                // The number of names that lead here.
  Bytes content;                          // Of a file.

  bool IsDirectory() const;
  bool IsReparsePoint() const;
};

using Nodes = std::map<NodeId, Node>;

// The changes of metadata. Each applies to an image as a whole or not at all.
struct CreateChange {
  NodeId id = kNoNode;
  NodeId directory = kNoNode;
  std::u16string spelling;
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
  std::u16string reparse_target;
};

struct LinkChange {
  NodeId id = kNoNode;
  NodeId directory = kNoNode;
  std::u16string spelling;
};

struct UnlinkChange {
  NodeId directory = kNoNode;
  std::u16string spelling;
};

// Replaces what stands at the new name, if anything does.
struct RenameChange {
  NodeId from_directory = kNoNode;
  std::u16string from;
  NodeId to_directory = kNoNode;
  std::u16string to;
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

// Content that a power cut may lose. `since` is the length of the log when the content was begun: a
// prefix that is shorter shows the file as it was before.
struct UnflushedContent {
  std::size_t since = 0;
};

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

  bool posix_delete = true;       // Answers FileDispositionInfoEx.
  bool write_protected = false;   // Every change fails with 19.
  std::uint64_t capacity = ~std::uint64_t{0};  // Bytes of content that fit.

  const Nodes& nodes() const { return live_; }
  const Node& node(NodeId id) const { return live_.at(id); }
  const Node* Find(NodeId directory, std::u16string_view name) const;
  std::uint64_t FreeBytes() const;

  // A change of metadata: at once in `live`, in the log until it is forced. An unlinked node stays
  // until Forget, since a handle may hold it.
  NodeId Create(CreateChange change);  // Chooses the id and returns it.
  void Apply(const Change& change);
  void Forget(NodeId id);

  // A change of content, unflushed. Growth of the file goes into the log as a SizeChange.
  void Write(NodeId id, std::uint64_t offset, std::string_view bytes);

  // Flushes the content of one file, and forces the log, as a flush of a file does.
  void Flush(NodeId id);

  // Forces the log: every change so far is on the medium.
  void Force();

  // What a power cut can choose from: the log's length, and the files with unflushed content.
  std::size_t unforced_changes() const { return log_.size(); }
  std::vector<NodeId> UnflushedFiles() const;

  // Builds the image that a power cut leaves: the first `changes` of the log, and of each unflushed
  // file what `survival` keeps of it (a file without one keeps everything). The volume then is that
  // image, with nothing unforced.
  void CutPower(std::size_t changes, const std::map<NodeId, ContentSurvival>& survival);

  // Makes everything durable, as a start from a shut-down machine finds it.
  void Settle();

 private:
  void Truncated(NodeId id);

  Nodes live_;
  Nodes stable_;
  std::vector<Change> log_;
  std::map<NodeId, UnflushedContent> unflushed_;
  NodeId next_id_ = kRootNode + 1;
};

// The name under which two spellings are one on a case-insensitive volume.
std::u16string FoldName(std::u16string_view name);

}  // namespace tolvarine::updater::simulated
