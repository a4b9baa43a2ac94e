// Paths relative to a release: which are safe, when two are the same, and the order of release
// files.
//
// Every path from outside (a row of a list, an entry of a journal, a name in the staged tree) must
// pass IsSafeReleasePath before it is used. The rules look at the text alone and never ask the file
// system, so they give the same answer at any time.

#pragma once

#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The application's executable, at the top level of every release.
inline constexpr PathView kApplicationPath = u"Tolvarine.exe";

// The path from which the executable's key is made. It is in lower case, so that the key is the
// same even if the platform cannot map it.
inline constexpr PathView kApplicationKeyText = u"tolvarine.exe";

// True for a relative path without a root name in which every component is a plain name: not empty,
// not "." or "..", no full stop or blank at its end, none of <>:"|?*, nothing below U+0020, and not
// a device name such as CON or COM1, with or without an extension. Leading separators are accepted
// here; SafeJoin refuses them. Throws SystemError for a lone surrogate in a path without a root
// name.
[[nodiscard]] bool IsSafeReleasePath(PathView path);

// The form in which paths are persisted: UTF-8 with `/` as separator. Nothing else is normalized.
// Throws SystemError for a lone surrogate.
[[nodiscard]] std::string GenericUtf8Path(PathView path);

// The same, appended to `text`, which a failure leaves unchanged.
void AppendGenericUtf8Path(std::string& text, PathView path);

// The path that UTF-8 spells; separators are not changed. Throws SystemError for anything that is
// not well-formed.
[[nodiscard]] Path PathFromUtf8(std::string_view bytes);

// Two release paths are the same file, and two absolute paths the same directory, if their keys are
// equal. The key is the lexical normal form with `/` as separator, in the lower case of the
// invariant locale; if the platform cannot map it, its case is kept. A trailing separator counts.
// Keys are compared unit by unit.
[[nodiscard]] std::u16string PathCompareKey(PathView path);

[[nodiscard]] bool SamePathKey(PathView a, PathView b);

// The strict order of release files: ascending keys, with the application's executable last. Each
// comparison computes the keys anew, and the platform may map a path in one and fail to in the
// next. For sorting, compute the keys first and use ReleaseKeyBefore.
[[nodiscard]] bool ReleaseEntryBefore(PathView a, PathView b);

// The same order of keys; `application` is the key of kApplicationKeyText.
[[nodiscard]] bool ReleaseKeyBefore(const std::u16string& a, const std::u16string& b,
                                    const std::u16string& application);

}  // namespace tolvarine::updater
