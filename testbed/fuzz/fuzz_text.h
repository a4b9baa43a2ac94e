// What the fuzz targets share: bytes as 16-bit text, the machine that they run on, an idea of their
// own of what a plain path is, and how a broken property is told.
//
// The inputs are meant to be read and written by hand: they are UTF-8. What is no UTF-8 is taken as
// it comes, so that lone surrogates and every other unit can be met.

#pragma once

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_windows/computer.h"
#include "support/shown_text.h"

namespace tolvarine::updater::fuzz {

// The simulated machine that the platform's calls act on. Made once: parsers change nothing on it.
inline simulated::Computer& Machine() {
  static simulated::Computer computer;
  computer.MakeCurrent();
  return computer;
}

inline std::string_view Bytes(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Sequences of two and three bytes give their unit, even a surrogate; any other byte is a unit of
// its own.
inline std::u16string Wide(std::string_view bytes) {
  const auto tail = [&](std::size_t i) {
    return i < bytes.size() && (static_cast<unsigned char>(bytes[i]) & 0xC0U) == 0x80U
               ? static_cast<unsigned char>(bytes[i]) & 0x3FU
               : 0x100U;
  };
  std::u16string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    unsigned unit = static_cast<unsigned char>(bytes[i]);
    if ((unit & 0xE0U) == 0xC0U && tail(i + 1) < 0x100U) {
      unit = (unit & 0x1FU) << 6U | tail(i + 1);
      i += 1;
    } else if ((unit & 0xF0U) == 0xE0U && tail(i + 1) < 0x100U && tail(i + 2) < 0x100U) {
      unit = (unit & 0x0FU) << 12U | tail(i + 1) << 6U | tail(i + 2);
      i += 2;
    }
    text.push_back(static_cast<char16_t>(unit));
  }
  return text;
}

// What stands between the separators, of which there may be none: always one part at least.
template <typename Unit>
std::vector<std::basic_string<Unit>> Split(std::basic_string_view<Unit> text, Unit separator) {
  std::vector<std::basic_string<Unit>> parts(1);
  for (const Unit unit : text) {
    if (unit == separator) {
      parts.emplace_back();
    } else {
      parts.back().push_back(unit);
    }
  }
  return parts;
}

// The lines of an input as 16-bit text.
inline std::vector<std::u16string> WideLines(std::string_view bytes) {
  std::vector<std::u16string> lines;
  for (const std::string& line : Split(bytes, '\n')) lines.push_back(Wide(line));
  return lines;
}

inline bool IsDeviceName(std::u16string_view name) {
  std::string stem;
  for (const char16_t unit : name.substr(0, name.find(u'.'))) {
    stem.push_back(unit < 0x80 ? static_cast<char>(std::toupper(unit)) : '?');
  }
  if (stem == "CON" || stem == "PRN" || stem == "AUX" || stem == "NUL") return true;
  const bool port = stem.starts_with("COM") || stem.starts_with("LPT");
  return port && stem.size() == 4 && stem[3] >= '1' && stem[3] <= '9';
}

// True where every component is a name that cannot mean anything else. A separator in front passes,
// with nothing behind it too, and so do several in a row.
inline bool IsPlainPath(std::u16string_view path) {
  std::u16string uniform(path);
  for (char16_t& unit : uniform) unit = unit == u'/' ? u'\\' : unit;
  for (const std::u16string& name : Split<char16_t>(uniform, u'\\')) {
    if (name.empty()) continue;
    if (name.back() == u'.' || name.back() == u' ' || IsDeviceName(name)) return false;
    for (const char16_t unit : name) {
      if (unit < 0x20 || std::u16string_view(u"<>:\"|?*").find(unit) != std::u16string::npos) {
        return false;
      }
    }
  }
  const bool ends_in_separator = !uniform.empty() && uniform.back() == u'\\';
  return !uniform.empty() &&
         (!ends_in_separator || uniform.find_first_not_of(u'\\') == std::u16string::npos);
}

// --- Telling -------------------------------------------------------------------------------------

using updater::Shown;

template <typename Unit>
std::string Shown(const std::vector<std::basic_string<Unit>>& lines) {
  std::string shown;
  for (const auto& line : lines) shown += "\n    " + Shown(line);
  return shown;
}
inline std::string Shown(bool value) { return value ? "yes" : "no"; }

// Ends the run where a property does not hold for the inputs. What is expected may be of another type
// than what was got.
template <typename Expected, typename Got, typename... Inputs>
void ExpectSame(const char* property, const Expected& expected, const Got& got,
                const Inputs&... inputs) {
  if (expected == got) return;
  std::fprintf(stderr, "PROPERTY VIOLATED: %s\n", property);
  (std::fprintf(stderr, "  input     %s\n", Shown(inputs).c_str()), ...);
  std::fprintf(stderr, "  expected  %s\n  got       %s\n", Shown(expected).c_str(),
               Shown(got).c_str());
  __builtin_trap();
}

template <typename... Inputs>
void Expect(const char* property, bool holds, const Inputs&... inputs) {
  ExpectSame(property, true, holds, inputs...);
}

}  // namespace tolvarine::updater::fuzz
