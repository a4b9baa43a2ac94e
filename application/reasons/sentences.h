// Parts of the sentences that people read.

#pragma once

#include <exception>
#include <string>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

// A path in double quotes, as UTF-8 with `\` as separator. Lone surrogates are replaced.
[[nodiscard]] std::string Quoted(PathView path);

// The same without the quotes.
[[nodiscard]] std::string Utf8Of(PathView path);

// The text of a failure of the layers below, which stands in the code page of path texts, as UTF-8.
[[nodiscard]] std::string FailureText(const std::exception& failure);

}  // namespace tolvarine::updater::application
