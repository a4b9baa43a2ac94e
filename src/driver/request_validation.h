// Proof that the paths of a request form the one layout that the system accepts. With W the
// workspace, S the installation state directory and K the first 32 units of the update's id:
//
//     S                            named by the installation's key
//     S\installed-manifest.json    the installed manifest
//     S\s\K                        the authenticated stages of this update; the source is in them
//     S\updates\<update id>        W, the protected update workspace
//     W\pending.json               the pending marker
//     W\completed.json             the completed marker
//
// The target lies apart from W and is not the source, and the source holds a regular Tolvarine.exe,
// or a link to a regular file of that name.
// Everything that later derives a path from the workspace relies on this. No file is changed.

#pragma once

#include <string>

#include "driver/command_line.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// How much of an update's id names its stages.
inline constexpr std::size_t kStageNameLength = 32;

// Replaces the paths (all but `restart`, which is left alone) by their canonical forms and proves
// the layout. Returns an empty text, or the sentence of the first check that failed; fields before
// the failure then stay rewritten, one that could not be resolved is empty, and nothing may use
// them. Throws nothing for bad input.
[[nodiscard]] std::u16string ValidateRequest(UpdaterArguments& arguments);

// True for a full path that names something below a root and does not end in a separator. It need
// not exist or be a directory. Text alone.
[[nodiscard]] bool IsSafeDirectory(PathView path);

// Both compare normal forms, as text, folding case unit by unit as the platform does. A trailing
// separator is an element of its own, so a base should have none. Looser than IsInsideRoot, and
// never a gate for acting on a path.
[[nodiscard]] bool PathsEqual(Path a, Path b);

// True when the path is the base or lies below it, by whole elements.
[[nodiscard]] bool IsPathWithin(PathView path, PathView base);

}  // namespace tolvarine::updater
