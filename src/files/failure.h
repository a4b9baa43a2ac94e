// The failures of this layer and of the layers above it.
//
// There are three kinds, all derived from std::runtime_error: std::runtime_error itself with a
// fixed sentence, SystemError with a Win32 code (text/system_error.h), and FilesystemError. The
// layers above use nothing but their 8-bit texts. A path in a text is converted when the failure is
// thrown. If the path in a fixed sentence has no exact form in the code page, the SystemError of
// the conversion is thrown instead.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/path_algebra.h"
#include "text/system_error.h"

namespace tolvarine::updater {

// The code page of paths in the texts of failures: UTF-8 if the C runtime's locale uses it, else
// that of the 8-bit file calls (kCpAcp or kCpOemcp).
[[nodiscard]] std::uint32_t FileSystemCodePage();

// The path in that code page, exactly. Throws SystemError if it has no exact form.
[[nodiscard]] std::string NarrowPathText(PathView path);

// The text is `operation: system message: "path"`. The path is in the same code page, with default
// characters for what that cannot hold.
class FilesystemError : public std::runtime_error {
 public:
  FilesystemError(std::string_view operation, std::uint32_t code, PathView path);

  [[nodiscard]] std::uint32_t code() const { return code_; }

 private:
  std::uint32_t code_;
};

// Throws std::runtime_error with `sentence`, which ends in ": ", followed by the path; SystemError
// if the path has no exact form.
[[noreturn]] void ThrowAboutPath(std::string_view sentence, PathView path);

}  // namespace tolvarine::updater
