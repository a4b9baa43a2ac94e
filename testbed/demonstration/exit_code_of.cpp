// exit_code_of PROCESS-ID: opens a process that another one has started, prints "waiting", waits
// until it ends, and ends with the same exit code; with 99 where there is no such process.

#include <windows.h>

#include <cstdio>
#include <cstdlib>

int main(int count, char** arguments) {
  constexpr int kNoSuchProcess = 99;
  const DWORD id = count == 2 ? std::strtoul(arguments[1], nullptr, 10) : 0;
  const HANDLE process =
      OpenProcess(SYNCHRONIZE | PROCESS_QUERY_LIMITED_INFORMATION, /*bInheritHandle=*/FALSE, id);
  if (process == nullptr) return kNoSuchProcess;
  std::puts("waiting");
  std::fflush(stdout);
  DWORD code = kNoSuchProcess;
  WaitForSingleObject(process, INFINITE);
  GetExitCodeProcess(process, &code);
  return static_cast<int>(code);
}
