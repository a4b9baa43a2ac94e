// file_holder PATH STOP-FILE: opens a file as a virus scanner does, for reading, so that nobody can
// delete or replace it, prints "holding", and closes it when STOP-FILE appears. Ends with 1 where
// it cannot open the file, with 64 for wrong usage.

#include <windows.h>

#include <cstdio>

#include "files/unique_handle.h"
#include "platform/files.h"
#include "platform/shell.h"

namespace platform = tolvarine::updater::platform;

int main() {
  constexpr DWORD kPollInterval = 10;  // Milliseconds.
  constexpr int kCannotOpen = 1;
  constexpr int kWrongUsage = 64;
  std::int32_t count = 0;
  char16_t** const arguments = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  if (count != 3) return kWrongUsage;
  const tolvarine::updater::FileHandle file(platform::CreateFileW(
      arguments[1], platform::kGenericRead, platform::kFileShareRead | platform::kFileShareWrite,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  if (!file) return kCannotOpen;
  std::puts("holding");
  std::fflush(stdout);
  while (platform::GetFileAttributesW(arguments[2]) == platform::kInvalidFileAttributes) {
    Sleep(kPollInterval);
  }
  return 0;
}
