#include "files/failure.h"

#include <limits>

#include "platform/error_codes.h"
#include "platform/handles.h"
#include "platform/text.h"

namespace tolvarine::updater {
namespace {

// How text that a code page cannot hold is treated.
struct NarrowRule {
  std::uint32_t code_page = platform::kCpAcp;
  std::uint32_t flags = 0;
  bool refuse_stand_ins = false;
};

NarrowRule ExactRule() {
  const std::uint32_t code_page = FileSystemCodePage();
  const bool unicode = code_page == platform::kCpUtf8 || code_page == platform::kCpGb18030;
  // The Unicode code pages refuse by themselves, and do not report stand-ins.
  if (unicode) return {code_page, platform::kWcErrInvalidChars, false};
  return {code_page, platform::kWcNoBestFitChars, true};
}

std::int32_t NarrowInto(const NarrowRule& rule, PathView path, char* output, std::int32_t size) {
  bool stand_in = false;
  const std::int32_t length = platform::WideCharToMultiByte(
      rule.code_page, rule.flags, path.data(), static_cast<std::int32_t>(path.size()), output, size,
      rule.refuse_stand_ins ? &stand_in : nullptr);
  if (length <= 0) RaiseLastError();
  if (stand_in) throw SystemError(platform::kErrorNoUnicodeTranslation);
  return length;
}

std::string Narrow(const NarrowRule& rule, PathView path) {
  if (path.empty()) return {};
  if (path.size() > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
    throw SystemError(platform::kErrorInvalidParameter);
  }
  const std::int32_t size = NarrowInto(rule, path, nullptr, 0);
  std::string text(static_cast<std::size_t>(size), '\0');
  NarrowInto(rule, path, text.data(), size);
  return text;
}

// Stand-ins are welcome here: a failure without its path would say less than one with a poor path.
std::string NarrowLeniently(PathView path) {
  const std::uint32_t code_page = FileSystemCodePage();
  try {
    return Narrow({code_page, platform::kWcNoBestFitChars, false}, path);
  } catch (const SystemError&) {
    return Narrow({code_page, 0, false}, path);  // The Unicode code pages refuse the flag.
  }
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

std::string NarrowPathText(PathView path) { return Narrow(ExactRule(), path); }

FilesystemError::FilesystemError(std::string_view operation, std::uint32_t code, PathView path)
    : std::runtime_error(FilesystemText(operation, code, path)), code_(code) {}

void RaiseLastError() { throw SystemError(platform::GetLastError()); }

void RaiseLastError(std::string_view context) {
  throw SystemError(platform::GetLastError(), context);
}

void RaiseAboutPath(std::string_view sentence, PathView path) {
  throw std::runtime_error(std::string(sentence) + NarrowPathText(path));
}

}  // namespace tolvarine::updater
