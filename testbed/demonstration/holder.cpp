// file_holder PATH STOPFILE: opens a file as a virus scanner does, for reading and without letting
// anyone delete or replace it, prints "holding", and lets go when STOPFILE appears or its standard
// input ends. Ends with 1 where it cannot hold the file, with 64 for wrong usage.

#include <windows.h>

#include <atomic>
#include <cstdio>
#include <thread>

#include "files/unique_handle.h"
#include "platform/files.h"
#include "platform/shell.h"

namespace {

namespace platform = tolvarine::updater::platform;

constexpr DWORD kPollInterval = 10;  // Milliseconds.

std::atomic<bool> input_ended = false;

void AwaitEndOfInput() {
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  char byte = 0;
  DWORD read = 1;
  while (ReadFile(input, &byte, 1, &read, nullptr) != FALSE && read != 0) {
  }
  input_ended = true;
}

bool Exists(const char16_t* path) {
  return platform::GetFileAttributesW(path) != platform::kInvalidFileAttributes;
}

}  // namespace

int main() {
  constexpr int kCannotHold = 1;
  constexpr int kWrongUsage = 64;
  std::int32_t count = 0;
  char16_t** const arguments = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  if (count != 3) return kWrongUsage;
  const tolvarine::updater::FileHandle file(platform::CreateFileW(
      arguments[1], platform::kGenericRead, platform::kFileShareRead | platform::kFileShareWrite,
      platform::kOpenExisting, platform::kFileAttributeNormal));
  if (!file) return kCannotHold;
  std::puts("holding");
  std::fflush(stdout);
  std::thread(AwaitEndOfInput).detach();  // The read may still block when the process ends.
  while (!input_ended && !Exists(arguments[2])) Sleep(kPollInterval);
  return 0;
}
