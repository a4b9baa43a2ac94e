// Paths as text: dividing, joining, normalizing and relating them. Nothing here asks the file
// system; files/canonical_path.h does.
//
// The rules are those of Windows on every platform: both `\` and `/` separate, and `\` is the
// preferred separator. A path divides into
//
//     root name   root directory   relative part
//     C:          \                a\b
//     \\server    \                share\a
//     \\?         \                C:\a
//
// A root name is a drive, a server or a device prefix. The root directory is the run of separators
// behind the root name; it may be empty. The relative part is a list of components between runs of
// separators; a trailing separator counts as one empty last component.
//
// Paths are compared unit by unit, without case folding or locale. `\` and `/` compare equal, and
// so do two root directories of any length. No function fails: every text is a path. A view that
// is returned points into the text that was passed in.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tolvarine::updater {

using Path = std::u16string;
using PathView = std::u16string_view;

[[nodiscard]] constexpr bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

// The prefix that exempts a path from the limit of 260 units.
inline constexpr PathView kExtendedLengthPrefix = u"\\\\?\\";

// True for a path that begins with an ASCII letter and a colon.
[[nodiscard]] bool HasDrivePrefix(PathView path);

// Where the root name of [first, last) ends; `first` if there is none.
[[nodiscard]] const char16_t* RootNameEnd(const char16_t* first, const char16_t* last);

// The three parts of a path, as views into its text.
struct PathParts {
  PathView root_name;
  PathView root_directory;
  PathView relative;
};

[[nodiscard]] PathParts DividePath(PathView path);

// The components of a relative part, in order. Only the last one can be empty, since a relative
// part does not begin with a separator.
[[nodiscard]] std::vector<PathView> Components(PathView relative);

// The elements of a path, in order: the root name and the root directory, each unless it is empty,
// then the components.
[[nodiscard]] std::vector<PathView> PathElements(PathView path);

// The last component; empty for a root and for a path that ends in a separator.
[[nodiscard]] PathView LastComponent(PathView path);

// True for a drive followed by a separator and for any other root name. `C:x` and `\x` are not
// absolute.
[[nodiscard]] bool IsAbsolutePath(PathView path);

// The path without its last component and the separators before it. The root is never shortened.
[[nodiscard]] Path ParentPath(PathView path);

// `relative` as seen from the directory `root`:
//
//     C:\x  + a     = C:\x\a     a separator between them, unless there is one already
//     C:    + a     = C:a       a bare drive is not followed by a separator
//     C:\x  + C:a   = C:\x\a     the same root name is dropped
//     C:\x  + D:a   = D:a       another root name, or an absolute path, replaces `root`
//     C:\x  + \a    = C:\a      a root directory keeps only the root name of `root`
//
// An empty `root` gets no separator behind it. An empty `relative` adds a separator at the end.
[[nodiscard]] Path JoinPath(PathView root, PathView relative);

// Turns `path` into JoinPath(path, relative) without copying it. `relative` must not be a view of
// `path`.
void AppendPath(Path& path, PathView relative);

// The path with single `\` as separators and without "." and "..", which are resolved by text
// alone. "." for a path of which nothing is left; an empty path stays empty. A trailing separator
// stays, but not behind "..". A name that a last ".." cancels leaves one: `a\b\..` becomes `a\`.
[[nodiscard]] Path LexicallyNormal(PathView path);

// `path` as seen from `base`, by text alone; "." where they differ by a trailing separator at most.
// Empty where there is no such path:
//   - the root names differ, `\\?\C:` and `C:` among them;
//   - only one of the two is absolute, or only `base` has a root directory;
//   - a component has a root name, as in `C:\a\D:x`;
//   - `base` leads up further than down behind what the two have in common.
// The result begins with a separator where only `path` has a root directory: `\\s\x` seen from
// `\\s` is `\x`.
[[nodiscard]] Path LexicallyRelative(PathView path, PathView base);

// The form that is exempt from the limit of 260 units: `\\?\C:\…` or `\\?\UNC\server\…`. A
// relative path gets no prefix, and a path that already begins with `\\?\` stays. The path should
// be in lexical normal form, since "." and ".." are not resolved behind the prefix. Other device
// forms are not supported.
[[nodiscard]] Path ExtendedLengthPath(PathView path);

}  // namespace tolvarine::updater
