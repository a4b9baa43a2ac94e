// Validation of a request: its paths must form the one layout that the updater accepts. With W the
// workspace, S the installation state directory and K the first 32 units of the update id:
//
//     S                            its name is the installation key
//     S\installed-manifest.json    the installed manifest
//     S\s\K                        the authenticated stages of this update; the source is this
//                                  directory or below it
//     S\updates\<update id>        W, the protected update workspace
//     W\pending.json               the pending marker
//     W\completed.json             the completed marker
//
// The target and W must not contain each other, the target must not be the source, and the source
// must contain Tolvarine.exe, a regular file or a link to one. All later code that derives a path
// from the workspace relies on this. Nothing here changes a file.

#pragma once

#include <string>

#include "driver/command_line.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// The number of units of an update id that form the name of its stages directory.
inline constexpr std::size_t kStageNameLength = 32;

// Replaces the paths, except `restart`, by their canonical forms and checks the layout. Returns an
// empty text, or the sentence of the first check that fails; the arguments must then not be used,
// since some paths may be replaced and one may be empty. Does not throw for bad input.
[[nodiscard]] std::u16string ValidateRequest(UpdaterArguments& arguments);

// True for an absolute path that has a component below its root and does not end in a separator.
// Looks only at the text: the path need not exist or be a directory.
[[nodiscard]] bool IsSafeDirectory(PathView path);

// PathsEqual and IsPathWithin compare the normal forms of paths as text, and fold case unit by unit
// as the platform does. A trailing separator counts as an element, so a base should have none. They
// are less strict than IsInsideRoot and must not decide whether a path may be changed.
[[nodiscard]] bool PathsEqual(Path a, Path b);

// True if the path is the base or below it, by whole elements.
[[nodiscard]] bool IsPathWithin(PathView path, PathView base);

}  // namespace tolvarine::updater
