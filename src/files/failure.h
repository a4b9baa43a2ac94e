// The failures of the file layer and of everything above it.
//
// There are three kinds, all of the standard hierarchy and all with a finished 8-bit text, which is
// all that anyone above this layer uses: std::runtime_error with a fixed sentence, SystemError with
// a Win32 code (text/system_error.h), and FilesystemError. A path in a text is narrowed when the
// failure is thrown; a path in a fixed sentence that cannot be narrowed exactly replaces the
// failure by that of the conversion.
//
// Operations that wrap a single platform result do not throw: they return the code.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "text/path_algebra.h"
#include "text/system_error.h"

namespace tolvarine::updater {

// The code page of path texts in failures: UTF-8 where the C runtime's locale has it, else that of
// the file calls (kCpAcp or kCpOemcp).
[[nodiscard]] std::uint32_t FileSystemCodePage();

// The path in that code page, exactly. Throws SystemError where it has no exact form.
[[nodiscard]] std::string NarrowPathText(PathView path);

// `operation: system message: "path"`, the path in the same code page with stand-ins for what it
// cannot hold.
class FilesystemError : public std::runtime_error {
 public:
  FilesystemError(std::string_view operation, std::uint32_t code, PathView path);

  [[nodiscard]] std::uint32_t code() const { return code_; }

 private:
  std::uint32_t code_;
};

// Throws std::runtime_error: `sentence`, which ends in ": ", and the path.
[[noreturn]] void ThrowAboutPath(std::string_view sentence, PathView path);

}  // namespace tolvarine::updater
