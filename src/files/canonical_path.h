// Resolving paths on the disk, and the gate through which every path goes before it is acted on.
//
// IsInsideRoot folds no case and resolves nothing: it is as good as its inputs, which must have the
// same form and spelling. SafeJoin is the only way in which a relative path of a list or a journal
// becomes a path to act on. The gap between SafeJoin and the use of its result is not closed here:
// where it matters, the open of files/locked_release_file.h closes it.

#pragma once

#include <cstdint>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// Resolves an existing path with all its links, into the spelling on the disk: a drive or server
// form without prefix, or `\\?\GLOBALROOT\Device\…` for a volume without a drive letter. Returns a
// Win32 code, 0 on success; `resolved` is empty otherwise. An empty path succeeds.
[[nodiscard]] std::uint32_t Canonicalize(PathView path, Path& resolved);

// The same for a path whose tail may not exist: the existing head is resolved, the tail carried
// over in its lexical normal form. A path of which nothing exists is its own normal form, which may
// be relative. `code` is a Win32 code: 0, or that of a failure outside the not-found family; the
// result is then empty. A path in the extended form should exist: where it does not, its prefix is
// lost.
[[nodiscard]] Path WeaklyCanonicalize(PathView path, std::uint32_t& code);

// True when `path` is `root` or lies below it, by whole components.
[[nodiscard]] bool IsInsideRoot(PathView path, PathView root);

// `relative` joined to the canonical `root`, in lexical normal form; links on the way stay in it.
// Throws std::runtime_error "Unsafe <label> path" for a relative path that is not safe or leaves
// the root as text, and "<label> path escapes its root" for one that leaves it through a link or
// cannot be resolved; SystemError for a lone surrogate. A link at the end that leads nowhere
// passes: whoever opens or queries the path refuses it.
[[nodiscard]] Path SafeJoin(PathView root, PathView relative, std::string_view label);

}  // namespace tolvarine::updater
