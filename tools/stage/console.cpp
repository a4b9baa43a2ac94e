#include "stage/console.h"

#include <windows.h>

// Needs the types of windows.h.
#include <bcrypt.h>

#include <array>
#include <stdexcept>

#include "text/hex.h"
#include "text/system_error.h"
#include "text/utf8.h"

namespace tolvarine::updater::stage {
namespace {

constexpr std::size_t kIdentifierBytes = 32;
constexpr DWORD kPathCapacity = 32768;  // Units; no path is longer.

wchar_t* Wide(std::u16string& text) { return reinterpret_cast<wchar_t*>(text.data()); }
const wchar_t* Wide(const Path& text) { return reinterpret_cast<const wchar_t*>(text.c_str()); }

}  // namespace

void Print(Channel channel, std::string_view text) {
  const HANDLE stream =
      GetStdHandle(channel == Channel::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
  DWORD mode = 0;
  DWORD written = 0;
  if (GetConsoleMode(stream, &mode) != FALSE) {
    std::u16string wide = Utf16FromUtf8(text);
    WriteConsoleW(stream, Wide(wide), static_cast<DWORD>(wide.size()), &written, nullptr);
  } else {
    WriteFile(stream, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}

std::u16string RandomIdentifier() {
  std::array<unsigned char, kIdentifierBytes> bytes{};
  if (BCryptGenRandom(nullptr, bytes.data(), kIdentifierBytes, BCRYPT_USE_SYSTEM_PREFERRED_RNG) <
      0) {
    throw std::runtime_error("No random numbers can be had");
  }
  return Utf16FromUtf8(EncodeHex({reinterpret_cast<const char*>(bytes.data()), bytes.size()}));
}

Path ProgramDirectory() {
  Path path(kPathCapacity, u'\0');
  path.resize(GetModuleFileNameW(nullptr, Wide(path), kPathCapacity));
  return ParentPath(path);
}

std::uint32_t RunProgram(const Path& program, std::u16string command_line) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (CreateProcessW(Wide(program), Wide(command_line), nullptr, nullptr, /*bInheritHandles=*/FALSE,
                     0, nullptr, nullptr, &startup, &process) == FALSE) {
    throw SystemError(GetLastError(), "The updater could not be started");
  }
  DWORD code = 0;
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return code;
}

}  // namespace tolvarine::updater::stage
