#include "files/failure.h"

#include <limits>

#include "platform/error_codes.h"
#include "platform/handles.h"
#include "platform/text.h"

namespace tolvarine::updater {
namespace {

// Code pages that hold every well-formed text, refuse any other and know no stand-ins. Of them the
// file system's code page is UTF-8 at most; a machine's ANSI code page is not resolved here, even
// where it is one of them.
bool IsUnicodeCodePage(std::uint32_t code_page) {
  return code_page == platform::kCpUtf8 || code_page == platform::kCpGb18030;
}

// Empty where the conversion fails, with its code in the last error. `stand_in`, where not null,
// tells whether something had to be replaced.
std::string Narrow(std::uint32_t code_page, std::uint32_t flags, PathView path, bool* stand_in) {
  if (path.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    platform::SetLastError(platform::kErrorInvalidParameter);
    return {};
  }
  const auto length = static_cast<std::int32_t>(path.size());
  const auto convert = [&](char* output, std::int32_t size) {
    return platform::WideCharToMultiByte(code_page, flags, path.data(), length, output, size,
                                         stand_in);
  };
  const std::int32_t size = convert(nullptr, 0);
  if (size <= 0) return {};
  std::string text(static_cast<std::size_t>(size), '\0');
  return convert(text.data(), size) > 0 ? text : std::string();
}

// Stand-ins are welcome here: a failure without its path would say less than one with a poor path.
std::string NarrowLeniently(PathView path) {
  const std::uint32_t code_page = FileSystemCodePage();
  const std::uint32_t flags = IsUnicodeCodePage(code_page) ? 0 : platform::kWcNoBestFitChars;
  std::string text = Narrow(code_page, flags, path, nullptr);
  // An ANSI code page that is UTF-8 refuses the flag.
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
  bool stand_in = false;
  std::string text = Narrow(code_page, flags, path, unicode ? nullptr : &stand_in);
  if (text.empty()) ThrowLastError();
  if (stand_in) throw SystemError(platform::kErrorNoUnicodeTranslation);
  return text;
}

FilesystemError::FilesystemError(std::string_view operation, std::uint32_t code, PathView path)
    : std::runtime_error(FilesystemText(operation, code, path)), code_(code) {}

void ThrowAboutPath(std::string_view sentence, PathView path) {
  throw std::runtime_error(std::string(sentence) + NarrowPathText(path));
}

}  // namespace tolvarine::updater
