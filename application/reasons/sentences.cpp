#include "reasons/sentences.h"

#include <algorithm>
#include <cstdint>

#include "files/failure.h"
#include "platform/text.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {

std::string Utf8Of(PathView path) {
  Path uniform(path);
  std::ranges::replace(uniform, u'/', u'\\');
  return LenientUtf8(uniform);
}

std::string Quoted(PathView path) { return "\"" + Utf8Of(path) + "\""; }

std::string FailureText(const std::exception& failure) {
  const std::string_view narrow = failure.what();
  if (narrow.empty()) return {};
  const auto length = static_cast<std::int32_t>(narrow.size());
  const auto convert = [&](char16_t* output, std::int32_t size) {
    return platform::MultiByteToWideChar(FileSystemCodePage(), 0, narrow.data(), length, output,
                                         size);
  };
  std::u16string wide(static_cast<std::size_t>(convert(nullptr, 0)), u'\0');
  convert(wide.data(), static_cast<std::int32_t>(wide.size()));
  return LenientUtf8(wide);
}

}  // namespace tolvarine::updater::application
