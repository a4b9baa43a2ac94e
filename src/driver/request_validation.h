// Proof that the paths of a request form the one layout that the system accepts. With W the
// workspace, S the installation state directory and K the first 32 units of the update's id:
//
//     S                            named by the installation's key
//     S\installed-manifest.json    the installed manifest
//     S\s\K                        the authenticated stages of this update; the source is at or below
//     S\updates\<update id>        W, the protected update workspace
//     W\pending.json               the pending marker
//     W\completed.json             the completed marker
//
// The target lies apart from W and is not the source, and the source holds a regular Tolvarine.exe.
// Everything that later derives a path from the workspace relies on this. No file is changed.

#pragma once

#include <string>

#include "driver/command_line.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

// Replaces the paths (all but `restart`, which is left alone) by their canonical forms and proves
// the layout. Returns an empty text, or the sentence of the first check that failed; the fields up
// to there then stay rewritten. Raises nothing for bad input.
[[nodiscard]] std::u16string ValidateRequest(UpdaterArguments& arguments);

// True for a full path that names something below a root, whether or not it exists. Text alone.
[[nodiscard]] bool IsSafeDirectory(PathView path);

// Equality of normal forms without regard to case.
[[nodiscard]] bool PathsEqual(Path a, Path b);

// True when the path is the base or lies below it, by whole elements and without regard to case.
[[nodiscard]] bool IsPathWithin(PathView path, PathView base);

}  // namespace tolvarine::updater
