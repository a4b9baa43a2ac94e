// Checks of a release before it is staged.
//
// The updater refuses a release with one sentence, which often does not name the file. These checks
// report every problem at once, with the file and the reason. A problem is one sentence of UTF-8
// text; paths in it are in quotation marks, with `/` as separator. If there are no problems, the
// updater's own checks of the lists, the tree and the paths pass too.
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

// The name of the release's directory below the stages of an update.
inline constexpr PathView kReleaseName = u"release";

// Returns the problems of a release directory and of the deletions of the same update: of the tree,
// of its files, of both lists and of the texts of the lists. Anything that cannot be read is a
// problem.
[[nodiscard]] Problems CheckRelease(const Path& release, const ManagedDeletionList& deletions);

// Returns the problems of the paths that the files will have in the stage, in the installation and
// in the backup. A path may have up to 259 units and a directory that is made up to 247, the limits
// of Windows without the extended form. A path of the installation that the update replaces or
// deletes must be a plain file. `files` and `deletions` are relative; `layout` and `target` should
// be canonical, as the updater will use them.
[[nodiscard]] Problems CheckPlaces(const UpdateLayout& layout, const Path& target,
                                   const std::vector<Path>& files,
                                   const ManagedDeletionList& deletions);

// Returns a problem if the command line is too long to start a process.
[[nodiscard]] Problems CheckCommandLine(std::u16string_view line);

// Returns the files below a directory, relative to it, in no particular order. Throws
// FilesystemError if it cannot be read.
[[nodiscard]] std::vector<Path> FilesOf(const Path& directory);

// Returns a path in quotation marks as UTF-8 text. Replaces lone surrogates.
[[nodiscard]] std::string Quoted(PathView path);

// Converts the text of an exception of the layers below to UTF-8. It is in the code page of path
// texts (see NarrowPathText).
[[nodiscard]] std::string FailureText(const std::exception& failure);

}  // namespace tolvarine::updater::staging
