#include "lists/release_path.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/text.h"
#include "text/conversion.h"
#include "text/utf8.h"

namespace tolvarine::updater {
namespace {

// The backslash never occurs here, since components are split at it. It completes the set.
constexpr std::string_view kForbiddenCharacters = "<>:\"|?*\\";
constexpr unsigned char kFirstPrintable = 0x20;

// Maps ASCII letters only: device names are ASCII, and other bytes belong to UTF-8 sequences.
std::string UpperAscii(std::string_view text) {
  std::string upper(text);
  for (char& letter : upper) {
    if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  }
  return upper;
}

bool IsDeviceName(std::string_view component) {
  static constexpr std::array<std::string_view, 4> kDevices = {"CON", "PRN", "AUX", "NUL"};
  const std::string stem = UpperAscii(component.substr(0, component.find('.')));
  if (std::ranges::find(kDevices, stem) != kDevices.end()) return true;
  return stem.size() == 4 && (stem.starts_with("COM") || stem.starts_with("LPT")) &&
         stem[3] >= '1' && stem[3] <= '9';
}

bool HasControlCharacter(std::string_view text) {
  return std::ranges::any_of(
      text, [](char byte) { return static_cast<unsigned char>(byte) < kFirstPrintable; });
}

bool IsSafeComponent(PathView component) {
  if (component.empty() || component == u"." || component == u"..") return false;
  const std::string text = GenericUtf8Path(component);
  if (text.back() == '.' || text.back() == ' ') return false;
  if (text.find_first_of(kForbiddenCharacters) != std::string::npos) return false;
  return !HasControlCharacter(text) && !IsDeviceName(text);
}

// The lower-case form, or the text itself where the platform cannot map it.
std::u16string InvariantLowerCase(const std::u16string& text) {
  const auto map = [&](std::int32_t length, char16_t* output, std::int32_t size) {
    return platform::LCMapStringEx(u"", platform::kLcmapLowercase, text.data(), length, output,
                                   size);
  };
  std::u16string lower;
  return AppendConverted(lower, text.size(), map) > 0 ? lower : text;
}

}  // namespace

bool IsSafeReleasePath(PathView path) {
  const PathParts parts = DividePath(path);
  if (path.empty() || IsAbsolutePath(path) || !parts.root_name.empty()) return false;
  if (GenericUtf8Path(path).find('\0') != std::string::npos) return false;
  // A root directory is not checked: the join with a root refuses it.
  const std::vector<PathView> components = Components(parts.relative);
  return std::ranges::all_of(components, IsSafeComponent);
}

std::string GenericUtf8Path(PathView path) {
  std::string text;
  AppendGenericUtf8Path(text, path);
  return text;
}

void AppendGenericUtf8Path(std::string& text, PathView path) {
  const auto start = static_cast<std::ptrdiff_t>(text.size());
  AppendUtf8(text, path);
  std::replace(text.begin() + start, text.end(), '\\', '/');
}

Path PathFromUtf8(std::string_view bytes) { return Utf16FromUtf8(bytes); }

std::u16string PathCompareKey(PathView path) {
  std::u16string key = LexicallyNormal(path);
  std::ranges::replace(key, u'\\', u'/');
  return key.empty() ? key : InvariantLowerCase(key);
}

bool SamePathKey(PathView a, PathView b) { return PathCompareKey(a) == PathCompareKey(b); }

bool ReleaseEntryBefore(PathView a, PathView b) {
  const std::u16string application = PathCompareKey(kApplicationKeyText);
  return ReleaseKeyBefore(PathCompareKey(a), PathCompareKey(b), application);
}

bool ReleaseKeyBefore(const std::u16string& a, const std::u16string& b,
                      const std::u16string& application) {
  if ((a == application) != (b == application)) return b == application;
  return a < b;
}

}  // namespace tolvarine::updater
