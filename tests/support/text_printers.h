// How 16-bit text is shown when a test fails, and how a test writes it.

#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace tolvarine::updater {

// For messages only: every unit beyond ASCII as \uXXXX.
inline std::string Shown(std::u16string_view text) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string shown;
  for (const char16_t unit : text) {
    if (unit >= 0x20 && unit < 0x7F) {
      shown.push_back(static_cast<char>(unit));
    } else {
      shown.append("\\u");
      for (int shift = 12; shift >= 0; shift -= 4) shown.push_back(kDigits[unit >> shift & 0xF]);
    }
  }
  return shown;
}

}  // namespace tolvarine::updater

namespace testing::internal {

// GoogleTest shows 16-bit text as a list of numbers otherwise.
template <>
inline void UniversalPrinter<std::u16string>::Print(const std::u16string& text,
                                                    std::ostream* stream) {
  *stream << '"' << tolvarine::updater::Shown(text) << '"';
}

}  // namespace testing::internal
