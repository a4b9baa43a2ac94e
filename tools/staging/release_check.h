// What keeps a release from being updated to, told before anything is staged.
//
// The updater refuses a release with a single sentence or with none; whoever ships one needs to
// know which file and why, and all of it at once. Every problem is one sentence of UTF-8 text in
// which paths stand in quotes, with `/` as separator. No problems means that the updater's own
// checks of the lists, the tree and the paths have nothing to find.
//
// Nothing here changes the disk.

#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "lists/managed_deletion_list.h"
#include "staging/layout.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::staging {

using Problems = std::vector<std::string>;

// Below the stages of an update: the directory of the release.
inline constexpr PathView kReleaseName = u"release";

// The problems of a release directory with the deletions that are to go with it: of the tree, of
// its files, of both lists and of their texts. What cannot be read is a problem too.
[[nodiscard]] Problems CheckRelease(const Path& release, const ManagedDeletionList& deletions);

// The problems of the places that the files will take: Windows opens paths of up to 259 units, and
// makes directories of up to 247; and what an update replaces or deletes is a plain file. `files` and `deletions` are relative; `layout` and `target`
// should be canonical, as the updater will use them.
[[nodiscard]] Problems CheckPlaces(const UpdateLayout& layout, const Path& target,
                                   const std::vector<Path>& files,
                                   const ManagedDeletionList& deletions);

// The problem of a command line that is too long to start a process with.
[[nodiscard]] Problems CheckCommandLine(std::u16string_view line);

// The files below a directory, relative to it, in no particular order. Throws SystemError.
[[nodiscard]] std::vector<Path> FilesOf(const Path& directory);

// A path in quotes, for a sentence. Lone surrogates are replaced.
[[nodiscard]] std::string Quoted(PathView path);

// The text of a failure of the layers below, which stands in the code page of path texts, as UTF-8.
[[nodiscard]] std::string FailureText(const std::exception& failure);

}  // namespace tolvarine::updater::staging
