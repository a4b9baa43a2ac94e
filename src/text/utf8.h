// Strict conversion between 16-bit text and UTF-8. Nothing is replaced: text that has no exact
// counterpart is a failure.

#pragma once

#include <string>
#include <string_view>

namespace tolvarine::updater {

// Throws SystemError: 1113 for a lone surrogate, 87 for a text too long for the platform to count.
[[nodiscard]] std::string Utf8FromUtf16(std::u16string_view wide);

// The same, put behind what `text` already holds. On failure `text` keeps that, and no more.
void AppendUtf8(std::string& text, std::u16string_view wide);

// Throws SystemError: 1113 for anything that is not well-formed UTF-8, 87 for a text too long for
// the platform to count.
[[nodiscard]] std::u16string Utf16FromUtf8(std::string_view utf8);

}  // namespace tolvarine::updater
