// A failure that carries a Win32 code, and the system's words for such a code.
//
// Defined on this layer, the lowest that throws it: the strict conversions of text fail with it.
// The other kinds of failure stand in files/failure.h.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tolvarine::updater {

// The system's message for a code in English, else in the system's default language, else in any;
// without trailing white space. "unknown error" where it has none.
[[nodiscard]] std::string SystemMessage(std::uint32_t code);

// Its text is the context, ": " and the system's message, or the message alone without a context.
class SystemError : public std::runtime_error {
 public:
  explicit SystemError(std::uint32_t code);
  SystemError(std::uint32_t code, std::string_view context);

  [[nodiscard]] std::uint32_t code() const { return code_; }

 private:
  std::uint32_t code_;
};

// Throws SystemError for the thread's last error, which is read before anything can disturb it.
[[noreturn]] void ThrowLastError();
[[noreturn]] void ThrowLastError(std::string_view context);

}  // namespace tolvarine::updater
