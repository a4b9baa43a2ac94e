// Files by path and by handle, as every process of a simulated computer sees them: which node a
// path names, whether a file can be opened while others have it open, and when a deleted name
// disappears.
//
// Functions that can fail return a Win32 code, 0 on success. None of them counts as a call or
// consults the injected faults: files.cpp and streams.cpp do that for the program under test, so
// that DiskEditor can use the same functions for other processes.

#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/files.h"
#include "simulated_windows/path_resolution.h"
#include "simulated_windows/volume.h"

namespace tolvarine::updater::simulated {

struct DiskSet;

// An open file or directory.
struct OpenFile {
  NodeRef node;
  EntryName name;            // The name that it was opened by; follows a rename.
  std::uint32_t access = 0;  // Specific rights; the generic ones are resolved.
  std::uint32_t sharing = 0;
  std::uint64_t position = 0;
  bool posix_delete = false;  // Closing this handle removes the name at once.
  bool foreign = false;       // Opened by another process.
  std::u16string path;        // As given to the open.
};

struct OpenRequest {
  std::u16string_view path;
  std::uint32_t access = 0;
  std::uint32_t sharing = 0;
  std::uint32_t disposition = platform::kOpenExisting;
  std::uint32_t flags = 0;
};

// A search in a directory: the records were taken when the search began.
struct Search {
  std::vector<platform::FindData> records;
  std::size_t next = 0;
};

class FileSystem {
 public:
  explicit FileSystem(DiskSet& disks) : disks_(disks) {}

  // --- Handles -------------------------------------------------------------------------------

  struct Opened {
    platform::Handle handle = platform::kInvalidHandle;
    // Why the open failed. With a handle: 183 where the file existed although the disposition can
    // create one, otherwise 0.
    std::uint32_t code = 0;
  };

  Opened Open(const OpenRequest& request);
  [[nodiscard]] OpenFile* Find(platform::Handle handle);  // Null if it is not open.
  bool Close(platform::Handle handle);  // False if it is not the handle of an open file.
  // Those that are open on a node, of every process.
  [[nodiscard]] std::vector<platform::Handle> HandlesOn(NodeRef node) const;
  // The files and searches that the program under test has open.
  [[nodiscard]] std::size_t open_handles() const;

  std::uint32_t Read(OpenFile& file, void* buffer, std::uint32_t size, std::uint32_t* read);
  std::uint32_t Write(OpenFile& file, std::string_view bytes);
  std::uint32_t Flush(const OpenFile& file);
  // Marks the file for deletion, or takes the mark back. `posix`: closing this handle removes the
  // name; otherwise closing the last handle does, and until then every open fails with 5.
  std::uint32_t Dispose(OpenFile& file, bool remove, bool posix, bool ignore_readonly);
  std::uint32_t SetAttributes(const OpenFile& file, std::uint32_t attributes);
  // The resolved path with its prefix: by drive or share, or by device. Nothing where the volume
  // has neither a drive nor a share.
  [[nodiscard]] std::optional<std::u16string> FinalPath(const OpenFile& file, bool by_device) const;

  // --- Paths ---------------------------------------------------------------------------------

  // Does not follow a link at the end of the path. 5 for a name that is being deleted.
  Resolved LookUp(std::u16string_view path) const;
  std::uint32_t Delete(std::u16string_view path);
  std::uint32_t Move(std::u16string_view from, std::u16string_view to, std::uint32_t flags);
  std::uint32_t MakeDirectory(std::u16string_view path);
  std::uint32_t MakeHardLink(std::u16string_view existing, std::u16string_view path);

  struct Listing {
    std::uint32_t code = 0;
    std::vector<platform::FindData> records{};
  };

  // What the pattern of a search finds: all of a directory (`directory\*`) or one name.
  [[nodiscard]] Listing List(std::u16string_view pattern) const;

  platform::Handle AddSearch(Search search);
  [[nodiscard]] Search* FindSearch(platform::Handle handle);
  bool CloseSearch(platform::Handle handle);

  // The computer restarts: nothing is open any more.
  void Reset();

  [[nodiscard]] Volume& VolumeOf(NodeRef node) const;
  [[nodiscard]] const Node& NodeOf(NodeRef node) const;

 private:
  std::uint32_t CheckOpen(const OpenRequest& request, const Resolved& found,
                          std::uint32_t access) const;
  bool ConflictsWithOpenFiles(NodeRef node, std::uint32_t access, std::uint32_t sharing) const;
  bool IsOpen(NodeRef node) const;
  bool IsPending(const EntryName& name) const;
  std::uint32_t CreateAt(const Resolved& missing, std::uint32_t attributes, NodeRef* created);
  void Unlink(const EntryName& name, NodeRef node);
  [[nodiscard]] Listing ListDirectory(NodeRef node) const;
  std::uint32_t CheckReplacement(const Resolved& from, const Resolved& to,
                                 std::uint32_t flags) const;

  platform::Handle NextHandle();

  DiskSet& disks_;
  std::map<platform::Handle, OpenFile> handles_;
  std::map<platform::Handle, Search> searches_;
  std::map<EntryName, NodeRef> pending_;  // Names that closing the last handle removes.
  platform::Handle next_handle_ = 0x40;
};

}  // namespace tolvarine::updater::simulated
