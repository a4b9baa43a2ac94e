// The text of the error box for a transaction that did not end installed.

#pragma once

#include <string>
#include <string_view>

#include "journal/journal_record.h"

namespace tolvarine::updater {

// Returns a sentence for the phase in which the run ended. If `details`, the engine's text, is not
// empty, it follows after two line feeds and "Details: ".
[[nodiscard]] std::u16string FailureMessage(TransactionPhase status, std::string_view details);

// Converts each byte to one unit by sign extension: bytes below 0x80 keep their value, bytes from
// 0x80 on become 0xFF80 to 0xFFFF. The text is not decoded in any code page.
[[nodiscard]] std::u16string WidenBytes(std::string_view text);

}  // namespace tolvarine::updater
