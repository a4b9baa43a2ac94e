// Conversion between 16-bit text and UTF-8.

#pragma once

#include <string>
#include <string_view>

namespace tolvarine::updater {

// The text as UTF-8, exactly. Throws SystemError: 1113 for a lone surrogate, 87 for a text too long
// for the platform's lengths.
[[nodiscard]] std::string Utf8FromUtf16(std::u16string_view wide);

// The same, appended to `text`, which a failure leaves unchanged.
void AppendUtf8(std::string& text, std::u16string_view wide);

// The text as UTF-8, with U+FFFD for lone surrogates. Empty where the conversion fails.
[[nodiscard]] std::string LenientUtf8(std::u16string_view wide);

// The text that UTF-8 spells. Throws SystemError: 1113 for anything that is not well-formed UTF-8,
// 87 for a text too long for the platform's lengths.
[[nodiscard]] std::u16string Utf16FromUtf8(std::string_view utf8);

}  // namespace tolvarine::updater
