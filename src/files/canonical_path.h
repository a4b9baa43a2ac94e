// Resolving paths on the disk, and the check that every path of a list or a journal passes before
// it is used.
//
// SafeJoin is the only way in which a relative path of a list or a journal becomes a path to act
// on. Somebody may change the disk between SafeJoin and the use of its result. Where that matters,
// the open of files/locked_release_file.h protects against it.

#pragma once

#include <cstdint>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// Resolves all links of an existing path, into the spelling on the disk: a drive or server form
// without prefix, or `\\?\GLOBALROOT\Device\…` for a volume without a drive letter. Returns a
// Win32 code, 0 on success; on failure `resolved` is empty. An empty path succeeds with an empty
// result.
[[nodiscard]] std::uint32_t Canonicalize(PathView path, Path& resolved);

// The same for a path whose tail may be missing: the existing head is resolved, and the tail is
// appended in its lexical normal form. If nothing exists, the result is the path's own normal form,
// which may be relative. `code` is 0, or the Win32 code of a failure outside the not-found family;
// the result is then empty. A path in the extended form should exist: if it does not, it loses its
// prefix.
[[nodiscard]] Path WeaklyCanonicalize(PathView path, std::uint32_t& code);

// True when `path` is `root` or lies below it, by whole components. No case is folded and nothing
// is resolved, so both paths must have the same form and spelling.
[[nodiscard]] bool IsInsideRoot(PathView path, PathView root);

// `relative` joined to the canonical `root`, in lexical normal form; links in it are not resolved.
// Throws
//   - std::runtime_error "Unsafe <label> path" if `relative` is not a safe release path or leaves
//     the root as text;
//   - std::runtime_error "<label> path escapes its root" if it leaves the root through a link or
//     cannot be resolved;
//   - SystemError for a lone surrogate.
// A dangling link at the end is accepted: whoever opens or queries the path refuses it.
[[nodiscard]] Path SafeJoin(PathView root, PathView relative, std::string_view label);

}  // namespace tolvarine::updater
