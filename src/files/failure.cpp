#include "files/failure.h"

#include "platform/error_codes.h"
#include "platform/text.h"
#include "text/conversion.h"

namespace tolvarine::updater {
namespace {

// UTF-8 and GB 18030 can spell every well-formed text. The system refuses the question for a
// default character with them, and offers a flag that refuses lone surrogates instead.
bool IsUnicodeCodePage(std::uint32_t code_page) {
  return code_page == platform::kCpUtf8 || code_page == platform::kCpGb18030;
}

// Empty if the conversion fails, with the code in the last error. `used_default`, unless null,
// receives whether a character had to be replaced.
std::string Narrow(std::uint32_t code_page, std::uint32_t flags, PathView path,
                   bool* used_default) {
  std::string text;
  const std::int32_t written =
      AppendConverted(text, path.size(), [&](std::int32_t length, char* output, std::int32_t size) {
        return platform::WideCharToMultiByte(code_page, flags, path.data(), length, output, size,
                                             used_default);
      });
  return written > 0 ? text : std::string();
}

// Replaces what the code page cannot hold: a failure with a damaged path says more than one
// without.
std::string NarrowLeniently(PathView path) {
  const std::uint32_t code_page = FileSystemCodePage();
  const std::uint32_t flags = IsUnicodeCodePage(code_page) ? 0 : platform::kWcNoBestFitChars;
  std::string text = Narrow(code_page, flags, path, nullptr);
  // The machine's ANSI code page may be UTF-8, which refuses the flag. kCpAcp does not show it.
  return text.empty() && flags != 0 ? Narrow(code_page, 0, path, nullptr) : text;
}

std::string FilesystemText(std::string_view operation, std::uint32_t code, PathView path) {
  std::string text(operation);
  text.append(": ").append(SystemMessage(code)).append(": \"");
  text.append(NarrowLeniently(path)).append("\"");
  return text;
}

}  // namespace

std::uint32_t FileSystemCodePage() {
  if (platform::lc_codepage_func() == platform::kCpUtf8) return platform::kCpUtf8;
  return platform::AreFileApisANSI() ? platform::kCpAcp : platform::kCpOemcp;
}

std::string NarrowPathText(PathView path) {
  if (path.empty()) return {};
  const std::uint32_t code_page = FileSystemCodePage();
  const bool unicode = IsUnicodeCodePage(code_page);
  const std::uint32_t flags = unicode ? platform::kWcErrInvalidChars : platform::kWcNoBestFitChars;
  bool used_default = false;
  std::string text = Narrow(code_page, flags, path, unicode ? nullptr : &used_default);
  if (text.empty()) ThrowLastError();
  if (used_default) throw SystemError(platform::kErrorNoUnicodeTranslation);
  return text;
}

FilesystemError::FilesystemError(std::string_view operation, std::uint32_t code, PathView path)
    : std::runtime_error(FilesystemText(operation, code, path)), code_(code) {}

void ThrowAboutPath(std::string_view sentence, PathView path) {
  throw std::runtime_error(std::string(sentence) + NarrowPathText(path));
}

}  // namespace tolvarine::updater
