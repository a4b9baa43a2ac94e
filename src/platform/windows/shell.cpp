#include "platform/shell.h"

#include "platform/windows/native.h"

// It needs the types of the system's header.
#include <shellapi.h>

namespace tolvarine::updater::platform {

static_assert(kMessageBoxIconError == MB_ICONERROR);
static_assert(kMessageBoxIconWarning == MB_ICONWARNING);
static_assert(kShowNormal == SW_SHOWNORMAL);

const char16_t* GetCommandLineW() { return reinterpret_cast<const char16_t*>(::GetCommandLineW()); }

char16_t** CommandLineToArgvW(const char16_t* command_line, std::int32_t* count) {
  int native_count = 0;
  LPWSTR* arguments = ::CommandLineToArgvW(Wide(command_line), &native_count);
  *count = native_count;
  return reinterpret_cast<char16_t**>(arguments);
}

void LocalFree(void* memory) { ::LocalFree(memory); }

std::int32_t MessageBoxW(const char16_t* text, const char16_t* title, std::uint32_t type) {
  return ::MessageBoxW(/*hWnd=*/nullptr, Wide(text), Wide(title), type);
}

std::intptr_t ShellExecuteW(const char16_t* verb, const char16_t* file, const char16_t* directory,
                            std::int32_t show) {
  return reinterpret_cast<std::intptr_t>(::ShellExecuteW(
      /*hwnd=*/nullptr, Wide(verb), Wide(file), /*lpParameters=*/nullptr, Wide(directory), show));
}

}  // namespace tolvarine::updater::platform
