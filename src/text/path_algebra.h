// Paths as text: how one divides, and how two are joined, normalized and related. Nothing here asks
// the file system; files/canonical_path.h does.
//
// Windows rules hold on every platform: both `\` and `/` separate, `\` is the preferred separator,
// a drive prefix, a server and a device prefix are root names. A path divides into
//
//     root name   root directory   relative part
//     C:          \                a\b
//     \\server    \                share\a
//     \\?         \                C:\a
//
// where the root directory is the run of separators right behind the root name, possibly empty, and
// the relative part is components between runs of separators. A trailing separator yields one empty
// last component.
//
// Paths are compared unit by unit: no case folding, no locale. Only `\` and `/` do not differ, and
// root directories do not, however many separators they are. Nothing here fails: every text is a
// path. Views live as long as the text that was passed in.

#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tolvarine::updater {

using Path = std::u16string;
using PathView = std::u16string_view;

[[nodiscard]] constexpr bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

// What exempts a path from the limit of 260 units.
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

// The components of a relative part, in order. A relative part does not begin with a separator, so
// no component but the last is ever empty.
[[nodiscard]] std::vector<PathView> Components(PathView relative);

// The elements of a path, in order: the root name and the root directory where there are any, then
// each component.
[[nodiscard]] std::vector<PathView> PathElements(PathView path);

// The last component; empty for a root, and behind a trailing separator.
[[nodiscard]] PathView LastComponent(PathView path);

// True for a drive followed by a separator and for any other root name. `C:x` and `\x` are not
// absolute.
[[nodiscard]] bool IsAbsolutePath(PathView path);

// The path without its last component and the separators before it; the root stays whole.
[[nodiscard]] Path ParentPath(PathView path);

// `relative` as seen from `root`: behind it and a separator, which is left out where `root` is
// empty, ends in one or is a bare drive. An absolute `relative`, or one with another root name,
// stands for itself; one with the same root name loses it; one that begins with a separator keeps
// only the root name of `root`. Joining an empty text puts a separator at the end.
[[nodiscard]] Path JoinPath(PathView root, PathView relative);

// The path with uniform separators and without "." and "..", resolved by text alone. A path of
// which nothing is left is ".", and an empty path stays empty. A trailing separator stays, but not
// behind ".."; a name that is undone at the end leaves one (`a\b\..` is `a\`).
[[nodiscard]] Path LexicallyNormal(PathView path);

// `path` as seen from `base`, by text alone; "." where they are the same but for a trailing
// separator. Empty where there is no such path: other root names, only one of them absolute, a root
// directory in `base` alone, a component such as `C:x`, or a base that leads up further than down.
// A drive behind `\\?\` has none to one without. Behind a server alone it begins with a separator:
// `\\s\x` seen from `\\s` is `\x`.
[[nodiscard]] Path LexicallyRelative(PathView path, PathView base);

// The form that is exempt from the limit of 260 units: `\\?\C:\…` or `\\?\UNC\server\…`. A relative
// path gets no prefix, and a text that begins with `\\?\` stays. Nothing is resolved, so the path
// should be normal; other device forms are not meant.
[[nodiscard]] Path ExtendedLengthPath(PathView path);

}  // namespace tolvarine::updater
