// What the fuzz targets share: inputs as 16-bit text, the simulated computer, a definition of plain
// paths that does not depend on the program's, and the report of a property that does not hold.
//
// Inputs are UTF-8, so that people can read and write them. Bytes that are not UTF-8 are accepted,
// too, so that an input can contain lone surrogates and every other unit.

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

// Makes a simulated computer current. It is the same one each time, since parsers do not change it.
inline void UseComputer() {
  static simulated::Computer computer;
  computer.MakeCurrent();
}

inline std::string_view Bytes(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// A sequence of two or three bytes becomes its unit, also where that is a surrogate; any other byte
// becomes a unit of its own.
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

// The parts between the separators; without a separator, the text is the only part.
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

// Whether every component is an ordinary name. Separators at the start, several in a row, and a
// path of separators alone are allowed.
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

// --- Properties ----------------------------------------------------------------------------------

using updater::Shown;

template <typename Unit>
std::string Shown(const std::vector<std::basic_string<Unit>>& lines) {
  std::string shown;
  for (const auto& line : lines) shown += "\n    " + Shown(line);
  return shown;
}
inline std::string Shown(bool value) { return value ? "yes" : "no"; }

// Reports a property that does not hold for the inputs, and ends the run.
template <typename Actual, typename Expected, typename... Inputs>
void ExpectSame(const char* property, const Actual& actual, const Expected& expected,
                const Inputs&... inputs) {
  if (actual == expected) return;
  std::fprintf(stderr, "PROPERTY VIOLATED: %s\n", property);
  (std::fprintf(stderr, "  input     %s\n", Shown(inputs).c_str()), ...);
  std::fprintf(stderr, "  actual    %s\n  expected  %s\n", Shown(actual).c_str(),
               Shown(expected).c_str());
  __builtin_trap();
}

template <typename... Inputs>
void Expect(const char* property, bool holds, const Inputs&... inputs) {
  ExpectSame(property, holds, true, inputs...);
}

}  // namespace tolvarine::updater::fuzz
