// Text for messages of tests and fuzz targets.

#pragma once

#include <string>
#include <string_view>

namespace tolvarine::updater {

// Printable ASCII as it is; every other unit in hexadecimal, as \uXXXX or, of 8-bit text, as \xXX.
template <typename Unit>
std::string WithEscapes(std::basic_string_view<Unit> text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string shown;
  for (const Unit unit : text) {
    if (unit >= 0x20 && unit < 0x7F) {
      shown.push_back(static_cast<char>(unit));
      continue;
    }
    shown.append(sizeof unit == 1 ? "\\x" : "\\u");
    for (int shift = sizeof unit * 8 - 4; shift >= 0; shift -= 4) {
      shown.push_back(kDigits[static_cast<unsigned>(unit) >> shift & 0xF]);
    }
  }
  return shown;
}

inline std::string Shown(std::u16string_view text) { return WithEscapes(text); }
inline std::string Shown(std::string_view text) { return WithEscapes(text); }

}  // namespace tolvarine::updater
