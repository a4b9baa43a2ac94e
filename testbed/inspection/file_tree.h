// Directory trees as they lie on the disk, and the comparison of an installation with the two
// versions that an update leads from and to.

#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>

namespace tolvarine::updater::inspection {

// From names, relative to the root, in UTF-8 with `/`, to whole contents. Directories are there
// too: their names end in `/` and their contents are empty.
using FileTree = std::map<std::string, std::string>;

// A path as such a name.
[[nodiscard]] std::string NameOf(const std::filesystem::path& path);

// The whole content of a file. Throws std::runtime_error where it cannot be opened.
[[nodiscard]] std::string ReadFile(const std::filesystem::path& path);

// Everything below a directory. Throws std::runtime_error or std::filesystem::filesystem_error.
[[nodiscard]] FileTree ReadTree(const std::filesystem::path& root);

// Whose content an installation holds under one name. A name that is absent from a tree counts as
// content, too: a file that the update deletes is New once it is gone.
enum class Version {
  Both,       // The two versions have the same.
  Old,        // As before the update.
  New,        // As after it.
  Temporary,  // A file in neither version, named as the updater names a temporary of one.
  Mixed,      // Anything else.
};

using Comparison = std::map<std::string, Version>;

// Compares byte for byte, for every name in one of the three trees.
[[nodiscard]] Comparison Compare(const FileTree& now, const FileTree& before,
                                 const FileTree& after);

// A line for each name whose version is neither Both nor among the accepted ones, with what is held
// there now; empty when there is none.
[[nodiscard]] std::string Deviations(const FileTree& now, const FileTree& before,
                                     const FileTree& after, const std::set<Version>& accepted);

}  // namespace tolvarine::updater::inspection
