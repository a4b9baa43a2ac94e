// Paths relative to a release: which are acceptable, when two are the same, and in which order
// release files are taken.
//
// Every path that comes from outside (a row of a list, an entry of a journal, a name in the staged
// tree) passes IsSafeReleasePath before anything else is done with it. The rule is text work and
// never asks the file system, so a list, a journal after a crash and the tree on the disk get the
// same answer. The words of a refusal belong to the caller.

#pragma once

#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The application's executable, at the top level of every release.
inline constexpr PathView kApplicationPath = u"Tolvarine.exe";

// The executable's path as keys are made from it: already in lower case, so that the key is the
// same even where the platform cannot map it.
inline constexpr PathView kApplicationKeyText = u"tolvarine.exe";

// True for a relative path without a root name whose every component is a plain name: not empty,
// not "." or "..", no full stop or blank at its end, none of <>:"|?*, nothing below U+0020, and not
// a device name such as CON or COM1, with or without an extension. Leading separators pass;
// SafeJoin refuses them. Throws SystemError for a lone surrogate in a path without a root name.
[[nodiscard]] bool IsSafeReleasePath(PathView path);

// The path as strict UTF-8 with `/` as separator, as it is persisted. Nothing else is normalized.
// Throws SystemError for a lone surrogate.
[[nodiscard]] std::string GenericUtf8Path(PathView path);

// The same, put behind what `text` already holds. On failure `text` keeps that, and no more.
void AppendGenericUtf8Path(std::string& text, PathView path);

// The path that strict UTF-8 spells; separators stay as they are. Throws SystemError for anything
// that is not well-formed.
[[nodiscard]] Path PathFromUtf8(std::string_view bytes);

// The one identity of a release-relative path, and what decides whether two absolute paths are the
// same directory: its lexical normal form with `/` as separator, in the invariant locale's lower
// case. Where the platform cannot map it, it keeps its case. A trailing separator counts. Keys
// compare unit by unit.
[[nodiscard]] std::u16string PathCompareKey(PathView path);

[[nodiscard]] bool SamePathKey(PathView a, PathView b);

// The strict order of release files: ascending keys, but the application's executable last. It is
// an order only as long as every key is mapped alike; for sorting, take the keys first.
[[nodiscard]] bool ReleaseEntryBefore(PathView a, PathView b);

// The same for keys that have been taken, `application` being that of the executable.
[[nodiscard]] bool ReleaseKeyBefore(const std::u16string& a, const std::u16string& b,
                                    const std::u16string& application);

}  // namespace tolvarine::updater
