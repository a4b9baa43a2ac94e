#include "verb_lab/laboratory.h"

#include <algorithm>
#include <stdexcept>

#include "engine/entry_temporary.h"
#include "journal/journal_text.h"
#include "simulated_windows/volume.h"

namespace tolvarine::updater::verb_lab {
namespace {

using application::PathsOf;
using application::UpdatePaths;

constexpr std::size_t kSeveralSectors = 1500;

std::optional<TransactionJournal> Newest(const Files& transaction) {
  std::optional<TransactionJournal> newest;
  for (const char16_t* slot : {u"journal.0", u"journal.1"}) {
    const auto text = transaction.find(KeyOf(slot));
    if (text == transaction.end()) continue;
    std::optional<TransactionJournal> journal = ParseJournal(text->second);
    if (!journal || (newest && newest->generation >= journal->generation)) continue;
    newest = std::move(journal);
  }
  return newest;
}

std::vector<std::u16string> Workspaces(const Laboratory& laboratory, const Files& state) {
  const Path updates = JoinPath(laboratory.fixture.installation.state, u"updates");
  std::vector<std::u16string> ids;
  for (const auto& [path, content] : Below(state, StateKey(laboratory, updates))) {
    if (path.find(u'\\') + 1 != path.size()) continue;
    std::u16string id = path.substr(0, path.size() - 1);
    for (char16_t& unit : id) {
      if (unit >= u'A' && unit <= u'F') unit = static_cast<char16_t>(unit - u'A' + u'a');
    }
    ids.push_back(std::move(id));
  }
  return ids;
}

WorkspaceView LookAt(const Laboratory& laboratory, const Files& state, const std::u16string& id) {
  const UpdatePaths paths = PathsOf(laboratory.fixture.installation, id);
  const auto stands = [&](const Path& path) { return state.contains(StateKey(laboratory, path)); };
  WorkspaceView view;
  view.pending = stands(paths.pending);
  view.completed = stands(paths.completed);
  view.stage = stands(paths.stage + u"\\");
  const Files transaction = Below(state, StateKey(laboratory, paths.transaction));
  view.more = std::ranges::any_of(transaction, [](const auto& entry) {
    return entry.first != KeyOf(u"journal.0.new") && entry.first != KeyOf(u"journal.1.new");
  });
  view.journal = Newest(transaction);
  return view;
}

PackagedRelease PackageOf(Laboratory& laboratory, std::uint64_t sequence,
                          const simulated::FileSet& files) {
  std::vector<std::u16string> removed;
  for (const PackagedRelease& earlier : laboratory.releases) {
    if (earlier.release.description.sequence >= sequence) continue;
    for (const auto& [path, content] : earlier.files) {
      const std::u16string key = KeyOf(path);
      const bool known = std::ranges::any_of(
          removed, [&key](const std::u16string& one) { return KeyOf(one) == key; });
      if (!known && !FilesOf(files).contains(key)) removed.push_back(path);
    }
  }
  return laboratory.fixture.Package(sequence, files, removed);
}

}  // namespace

std::u16string KeyOf(std::u16string_view path) {
  std::u16string key = simulated::FoldName(path);
  std::ranges::replace(key, u'/', u'\\');
  return key;
}

std::optional<std::string> ContentIn(const Files& files, const std::u16string& key) {
  const auto found = files.find(key);
  if (found == files.end()) return std::nullopt;
  return found->second;
}

Files FilesOf(const simulated::FileSet& files) {
  Files folded;
  for (const auto& [path, content] : files) folded[KeyOf(path)] = content;
  return folded;
}

Laboratory::Laboratory(bool on_two_volumes)
    : fixture(on_two_volumes ? u'D' : u'C'), two_volumes(on_two_volumes) {
  const auto add = [&](std::uint64_t sequence, const simulated::FileSet& files) {
    releases.push_back(PackageOf(*this, sequence, files));
  };
  const std::string large(kSeveralSectors, 'l');
  add(1, {{u"Tolvarine.exe", "executable 1"},
          {u"lib/core.dll", "core 1"},
          {u"lib/same.dll", "same"},
          {u"docs/Readme.txt", "readme 1"},
          {u"gone.txt", "gone"},
          {u"large.dat", large}});
  add(2, {{u"Tolvarine.exe", "executable 2"},
          {u"lib/core.dll", "core 2, which is longer"},
          {u"lib/same.dll", "same"},
          {u"docs/readme.txt", "readme 2"},
          {u"new/deep/added.dll", "added"},
          {u"large.dat", large + "and more"}});
  add(3, {{u"Tolvarine.exe", "executable 3"},
          {u"lib/core.dll", "core 3"},
          {u"lib/same.dll", "same"},
          {u"new/deep/added.dll", "added, then changed"},
          {u"gone.txt", "it is there again"}});
  // Another release of the same sequence; its package moves out of the other one's way.
  add(3, {{u"Tolvarine.exe", "executable 3 of others"},
          {u"lib/core.dll", "core 2, which is longer"},
          {u"lib/same.dll", "no longer the same"},
          {u"large.dat", large}});
  fixture.computer.disk.Rename(releases.back().package, u"C:\\Packages\\twin");
  releases.back().package = u"C:\\Packages\\twin";
  const PackagedRelease& third = releases[2];
  for (const auto& [path, content] : third.files) {
    fixture.computer.disk.WriteFile(JoinPath(third.package, path), content);
  }
  newest = PackageOf(*this, 9,
                     {{u"Tolvarine.exe", "executable 9"},
                      {u"lib/core.dll", "core 9"},
                      {u"other/place/core.dll", "core 9 elsewhere"},
                      {u"docs/README.TXT", "readme 9"},
                      {u"large.dat", large + "and more still"}});
  fixture.InstallFully(releases[0]);
  bare = fixture.computer.disks.volumes;
  if (fixture.Adopt(releases[0]).outcome != application::Outcome::Done) {
    throw std::logic_error("the first release is not adopted");
  }
  fixture.computer.disks.Settle();
  adopted = fixture.computer.disks.volumes;
}

DiskView Look(const Laboratory& laboratory) {
  const simulated::SimulatedInstallation& fixture = laboratory.fixture;
  DiskView view;
  const std::u16string temporary = KeyOf(kTemporarySuffix);
  for (auto& [path, content] : fixture.computer.disk.Tree(fixture.target)) {
    const std::u16string key = KeyOf(path);
    if (key.ends_with(u'\\') || key == KeyOf(u"log.txt") ||
        key == KeyOf(u"tolvarine-update-probe")) {
      continue;
    }
    if (key.ends_with(temporary)) {
      view.names.insert(key);
    } else {
      view.target[key] = std::move(content);
    }
  }
  for (auto& [path, content] : fixture.computer.disk.Tree(fixture.state_root)) {
    view.state[KeyOf(path)] = std::move(content);
  }
  view.state.erase(StateKey(laboratory, JoinPath(fixture.installation.state, u"lock")));
  for (const std::u16string& id : Workspaces(laboratory, view.state)) {
    view.workspaces[id] = LookAt(laboratory, view.state, id);
  }
  const auto manifest =
      view.state.find(StateKey(laboratory, InstalledManifestOf(fixture.installation)));
  if (manifest != view.state.end()) view.manifest = manifest->second;
  return view;
}

std::u16string StateKey(const Laboratory& laboratory, const Path& path) {
  return KeyOf(path.substr(laboratory.fixture.state_root.size() + 1));
}

Files Below(const Files& files, const std::u16string& directory) {
  const std::u16string prefix = directory + u"\\";
  Files below;
  for (auto entry = files.upper_bound(prefix);
       entry != files.end() && entry->first.starts_with(prefix); ++entry) {
    below[entry->first.substr(prefix.size())] = entry->second;
  }
  return below;
}

}  // namespace tolvarine::updater::verb_lab
