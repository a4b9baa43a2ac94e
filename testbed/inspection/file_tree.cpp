#include "inspection/file_tree.h"

#include <fstream>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "engine/entry_temporary.h"
#include "text/fnv1a.h"

namespace tolvarine::updater::inspection {
namespace {

namespace fs = std::filesystem;

using Content = std::optional<std::string_view>;  // Nothing where the name is absent.

Content In(const FileTree& tree, const std::string& name) {
  const auto found = tree.find(name);
  return found == tree.end() ? Content() : Content(found->second);
}

std::string Summary(const Content& content) {
  constexpr std::size_t kShortContent = 100;
  if (!content) return "nothing";
  if (content->size() <= kShortContent) return std::string("'").append(*content).append("'");
  return std::to_string(content->size()) + " bytes with FNV-1a " +
         std::to_string(Fnv1a64(*content));
}

bool IsTemporary(const std::string& name, const FileTree& before, const FileTree& after) {
  static const std::string suffix = NameOf(Path(kTemporarySuffix));
  if (!name.ends_with(suffix)) return false;
  const std::string destination = name.substr(0, name.size() - suffix.size());
  return before.contains(destination) || after.contains(destination);
}

}  // namespace

std::string NameOf(const fs::path& path) {
  const std::u8string name = path.generic_u8string();
  return {name.begin(), name.end()};
}

std::string ReadFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + NameOf(path));
  std::string bytes(fs::file_size(path), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  bytes.resize(static_cast<std::size_t>(file.gcount()));
  return bytes;
}

FileTree ReadTree(const fs::path& root) {
  FileTree tree;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = NameOf(entry.path().lexically_relative(root));
    if (entry.is_directory()) {
      tree[name + "/"];
    } else {
      tree[name] = ReadFile(entry.path());
    }
  }
  return tree;
}

Comparison Compare(const FileTree& now, const FileTree& before, const FileTree& after) {
  Comparison comparison;
  for (const FileTree* tree : {&now, &before, &after}) {
    for (const auto& [name, content] : *tree) comparison[name];
  }
  for (auto& [name, version] : comparison) {
    const Content held = In(now, name);
    const Content old = In(before, name);
    const Content updated = In(after, name);
    if (held == old) {
      version = held == updated ? Version::Both : Version::Old;
    } else if (held == updated) {
      version = Version::New;
    } else {
      const bool unknown = !old && !updated;
      version = unknown && IsTemporary(name, before, after) ? Version::Temporary : Version::Mixed;
    }
  }
  return comparison;
}

std::string Deviations(const FileTree& now, const FileTree& before, const FileTree& after,
                       const std::set<Version>& accepted) {
  std::string lines;
  for (const auto& [name, version] : Compare(now, before, after)) {
    if (version == Version::Both || accepted.contains(version)) continue;
    lines.append(name).append(" holds ").append(Summary(In(now, name))).append("\n");
  }
  return lines;
}

}  // namespace tolvarine::updater::inspection
