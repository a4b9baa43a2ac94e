// A failure that carries a Win32 code, and the system's message for such a code.
//
// It is defined in this layer because the conversions of text/utf8.h throw it. The other kinds of
// failure are in files/failure.h.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tolvarine::updater {

// The system's message for a code, without trailing white space: in English, else in the system's
// default language, else in any. "unknown error" if there is none.
[[nodiscard]] std::string SystemMessage(std::uint32_t code);

// The text is "<context>: <system message>", or the message alone.
class SystemError : public std::runtime_error {
 public:
  explicit SystemError(std::uint32_t code);
  SystemError(std::uint32_t code, std::string_view context);

  [[nodiscard]] std::uint32_t code() const { return code_; }

 private:
  std::uint32_t code_;
};

// Throws SystemError for the thread's last error, which is read before any other call.
[[noreturn]] void ThrowLastError();
[[noreturn]] void ThrowLastError(std::string_view context);

}  // namespace tolvarine::updater
