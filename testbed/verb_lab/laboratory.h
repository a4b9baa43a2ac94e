// What the sequences act on: an installation with signed releases of it, and what is on its disks,
// read without the library that is tested.

#pragma once

#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "journal/journal_record.h"
#include "simulated_installation/simulated_installation.h"

namespace tolvarine::updater::verb_lab {

using simulated::PackagedRelease;

// Files by key: the relative path with `\`, folded.
using Files = std::map<std::u16string, std::string>;

[[nodiscard]] std::u16string KeyOf(std::u16string_view path);
[[nodiscard]] Files FilesOf(const simulated::FileSet& files);

// Nothing where there is no such file.
[[nodiscard]] std::optional<std::string> ContentIn(const Files& files, const std::u16string& key);

struct Laboratory {
  // The state directory lies on C: with the target, or on D:.
  explicit Laboratory(bool on_two_volumes);

  simulated::SimulatedInstallation fixture;
  bool two_volumes;
  // They change, add, delete and delete again files and directories, and the case of a name. Two
  // have the same sequence.
  std::vector<PackagedRelease> releases;
  PackagedRelease newest;  // No sequence prepares it before its end.
  // The first release, adopted; and the same as a full package leaves it, without a state
  // directory.
  std::deque<simulated::Volume> adopted;
  std::deque<simulated::Volume> bare;
};

struct WorkspaceView {
  bool pending = false;
  bool completed = false;
  bool more = false;  // The transaction holds something beside slot temporaries.
  std::optional<TransactionJournal> journal{};
  bool stage = false;  // Its directory stands.
};

// Of everything but the log, the lock and the file that tests whether the target can be written to.
struct DiskView {
  Files target;                                        // Without temporaries.
  std::set<std::u16string> names;                      // Of temporaries in the target.
  std::map<std::u16string, WorkspaceView> workspaces;  // By id.
  std::string manifest;
  Files state;  // Everything below the state root; directories end in `\`.
};

[[nodiscard]] DiskView Look(const Laboratory& laboratory);

// Relative to the state root, as a key of DiskView::state.
[[nodiscard]] std::u16string StateKey(const Laboratory& laboratory, const Path& path);

// The files of a directory in DiskView::state, relative to it.
[[nodiscard]] Files Below(const Files& files, const std::u16string& directory);

}  // namespace tolvarine::updater::verb_lab
