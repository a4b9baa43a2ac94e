// The application that the updates of these tests install and restart.
//
// Started without arguments, it leaves "started.txt" in its own directory: its working directory,
// its path and its version, each on a line, in UTF-16. The version is what follows the last line
// feed of its own file, so that one build serves for all versions. Started with `--until NAME` it
// does nothing but wait for the event of that name.

#include <windows.h>

#include <cstdio>
#include <cwchar>

namespace {

constexpr DWORD kCapacity = 2048;

void PrintVersion(const wchar_t* program, std::FILE* report) {
  std::FILE* file = _wfopen(program, L"rb");
  char tail[32] = {};
  std::fseek(file, -static_cast<long>(sizeof(tail)), SEEK_END);
  std::size_t length = std::fread(tail, 1, sizeof(tail), file);
  std::fclose(file);
  std::size_t begin = length;
  while (begin > 0 && tail[begin - 1] != '\n') --begin;
  for (; begin < length; ++begin) std::fputwc(static_cast<wchar_t>(tail[begin]), report);
}

// Under its final name the report is complete, so that a reader need not guess.
void Report() {
  wchar_t directory[kCapacity] = {};
  wchar_t program[kCapacity] = {};
  wchar_t temporary[kCapacity] = {};
  wchar_t path[kCapacity] = {};
  GetCurrentDirectoryW(kCapacity, directory);
  GetModuleFileNameW(nullptr, program, kCapacity);
  const int length = static_cast<int>(std::wcsrchr(program, L'\\') + 1 - program);
  std::swprintf(temporary, kCapacity, L"%.*lsstarted.tmp", length, program);
  std::swprintf(path, kCapacity, L"%.*lsstarted.txt", length, program);
  std::FILE* report = _wfopen(temporary, L"wb");
  std::fwprintf(report, L"%ls\n%ls\n", directory, program);
  PrintVersion(program, report);
  std::fclose(report);
  MoveFileExW(temporary, path, MOVEFILE_REPLACE_EXISTING);
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  constexpr wchar_t kUntil[] = L"--until ";
  if (const wchar_t* option = std::wcsstr(GetCommandLineW(), kUntil)) {
    const HANDLE event = OpenEventW(SYNCHRONIZE, FALSE, option + std::wcslen(kUntil));
    return WaitForSingleObject(event, INFINITE) == WAIT_OBJECT_0 ? 0 : 1;
  }
  Report();
  return 0;
}
