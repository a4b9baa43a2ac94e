#include "text/system_error.h"

#include <memory>
#include <optional>

#include "platform/handles.h"
#include "platform/shell.h"
#include "platform/text.h"

namespace tolvarine::updater {
namespace {

constexpr std::uint32_t kEnglishUnitedStates = 1033;
constexpr std::uint32_t kAnyLanguage = 0;

struct LocalMemoryRelease {
  void operator()(void* memory) const { platform::LocalFree(memory); }
};

// kAnyLanguage if the system does not answer.
std::uint32_t SystemDefaultLanguage() {
  std::uint32_t language = kAnyLanguage;
  platform::GetLocaleInfoEx(u"!x-sys-default-locale",
                            platform::kLocaleReturnNumber | platform::kLocaleIlanguage, &language);
  return language;
}

// The system's message in one language; nothing if there is none.
std::optional<std::string> MessageInLanguage(std::uint32_t code, std::uint32_t language) {
  constexpr std::uint32_t kFlags = platform::kFormatMessageAllocateBuffer |
                                   platform::kFormatMessageIgnoreInserts |
                                   platform::kFormatMessageFromSystem;
  char* text = nullptr;
  const std::uint32_t length = platform::FormatMessageA(kFlags, code, language, &text);
  if (length == 0) return std::nullopt;
  const std::unique_ptr<char, LocalMemoryRelease> owner(text);
  return std::string(text, length);
}

}  // namespace

std::string SystemMessage(std::uint32_t code) {
  std::optional<std::string> found = MessageInLanguage(code, kEnglishUnitedStates);
  if (!found) found = MessageInLanguage(code, SystemDefaultLanguage());
  if (!found) found = MessageInLanguage(code, kAnyLanguage);
  std::string message = found.value_or(std::string());
  const std::size_t last = message.find_last_not_of(std::string_view(" \t\r\n\0", 5));
  message.resize(last == std::string::npos ? 0 : last + 1);
  return message.empty() ? "unknown error" : message;
}

SystemError::SystemError(std::uint32_t code)
    : std::runtime_error(SystemMessage(code)), code_(code) {}

SystemError::SystemError(std::uint32_t code, std::string_view context)
    : std::runtime_error(std::string(context) + ": " + SystemMessage(code)), code_(code) {}

void ThrowLastError() {
  const std::uint32_t code = platform::GetLastError();
  throw SystemError(code);
}

void ThrowLastError(std::string_view context) {
  const std::uint32_t code = platform::GetLastError();
  throw SystemError(code, context);
}

}  // namespace tolvarine::updater
