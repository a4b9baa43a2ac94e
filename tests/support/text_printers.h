// How GoogleTest prints 16-bit text.

#pragma once

#include <gtest/gtest.h>

#include <string>

#include "support/shown_text.h"

namespace testing::internal {

// It would print a list of numbers otherwise.
template <>
inline void UniversalPrinter<std::u16string>::Print(const std::u16string& text,
                                                    std::ostream* stream) {
  *stream << '"' << tolvarine::updater::Shown(text) << '"';
}

}  // namespace testing::internal
