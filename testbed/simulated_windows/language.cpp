// Lower case, the system's messages, its language and its code pages.

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/error_codes.h"
#include "platform/text.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/lower_case_table.h"
#include "simulated_windows/system_messages.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::FailCall;
using simulated::Fault;

namespace {

constexpr bool IsPair(char16_t high, char16_t low) {
  return (high & 0xFC00) == 0xD800 && (low & 0xFC00) == 0xDC00;
}

// Pairs of surrogates are mapped as one character. No lower case is longer or shorter than its
// capital.
void LowerInPlace(char16_t* text, std::size_t length) {
  for (std::size_t i = 0; i < length; ++i) {
    if (i + 1 == length || !IsPair(text[i], text[i + 1])) {
      text[i] = static_cast<char16_t>(simulated::LowerCase(text[i]));
      continue;
    }
    const char32_t character =
        0x10000 + ((char32_t{text[i]} & 0x3FF) << 10) + (char32_t{text[i + 1]} & 0x3FF);
    const char32_t lower = simulated::LowerCase(character) - 0x10000;
    text[i++] = static_cast<char16_t>(0xD800 + (lower >> 10));
    text[i] = static_cast<char16_t>(0xDC00 + (lower & 0x3FF));
  }
}

const simulated::MessageText* FindMessage(std::uint32_t code) {
  const auto* const end = std::end(simulated::kSystemMessages);
  const auto* const found = std::find_if(std::begin(simulated::kSystemMessages), end,
                                         [&](const auto& message) { return message.code == code; });
  return found == end ? nullptr : found;
}

}  // namespace

std::int32_t LCMapStringEx(const char16_t* locale, std::uint32_t flags, const char16_t* source,
                           std::int32_t source_length, char16_t* destination,
                           std::int32_t destination_size) {
  if (const Fault* fault = Computer::Current().calls.Enter(Call::LCMapStringEx)) {
    return FailCall(fault->code, 0);
  }
  const bool invariant = locale != nullptr && *locale == 0;
  const bool room = destination_size == 0 || (destination_size > 0 && destination != nullptr);
  if (!invariant || source == nullptr || source_length == 0 || !room) {
    return FailCall(kErrorInvalidParameter, 0);
  }
  if (flags != kLcmapLowercase) return FailCall(simulated::kErrorInvalidFlags, 0);
  // A negative length means a text that ends with a zero, and the zero is mapped, too.
  std::u16string text = source_length < 0
                            ? source + std::u16string(1, 0)
                            : std::u16string(source, static_cast<std::size_t>(source_length));
  const auto length = static_cast<std::int32_t>(text.size());
  if (destination_size == 0) return length;
  if (destination_size < length) return FailCall(simulated::kErrorInsufficientBuffer, 0);
  LowerInPlace(text.data(), text.size());
  std::copy(text.begin(), text.end(), destination);
  return length;
}

std::uint32_t CharLowerBuffW(char16_t* text, std::uint32_t length) {
  if (text == nullptr) return 0;
  LowerInPlace(text, length);
  return length;
}

std::uint32_t FormatMessageA(std::uint32_t flags, std::uint32_t code, std::uint32_t language,
                             char** text) {
  constexpr std::uint32_t kAllFlags =
      kFormatMessageAllocateBuffer | kFormatMessageIgnoreInserts | kFormatMessageFromSystem;
  constexpr std::uint32_t kEnglish = 1033;
  constexpr std::string_view kLineEnd = "\r\n";
  const Computer& computer = Computer::Current();
  if (const Fault* fault = Computer::Current().calls.Enter(Call::FormatMessageA)) {
    return FailCall(fault->code, 0U);
  }
  if (flags != kAllFlags || text == nullptr) return FailCall(kErrorInvalidParameter, 0U);
  if (language != 0 && language != kEnglish && language != computer.locale.system_language) {
    return FailCall(simulated::kErrorLanguageNotFound, 0U);
  }
  const simulated::MessageText* const message = FindMessage(code);
  if (message == nullptr) return FailCall(simulated::kErrorMessageNotFound, 0U);
  const std::string line = std::string(message->text).append(kLineEnd);
  *text = static_cast<char*>(std::malloc(line.size() + 1));
  if (*text == nullptr) return FailCall(simulated::kErrorNotEnoughMemory, 0U);
  std::memcpy(*text, line.c_str(), line.size() + 1);
  return static_cast<std::uint32_t>(line.size());
}

std::int32_t GetLocaleInfoEx(const char16_t* locale, std::uint32_t type, std::uint32_t* number) {
  constexpr std::u16string_view kSystemDefault = u"!x-sys-default-locale";
  constexpr std::int32_t kUnitsOfANumber = 2;
  const Computer& computer = Computer::Current();
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetLocaleInfoEx)) {
    return FailCall(fault->code, 0);
  }
  const bool known = locale != nullptr && locale == kSystemDefault && number != nullptr &&
                     type == (kLocaleReturnNumber | kLocaleIlanguage);
  if (!known || !computer.locale.system_language) return FailCall(kErrorInvalidParameter, 0);
  *number = *computer.locale.system_language;
  return kUnitsOfANumber;
}

bool AreFileApisANSI() { return Computer::Current().locale.file_apis_ansi; }

std::uint32_t lc_codepage_func() { return Computer::Current().locale.runtime_code_page; }

}  // namespace tolvarine::updater::platform
