// exit_code_of PROCESS-ID: takes hold of a process that somebody else has started, prints
// "waiting", and ends with the exit code that it ends with; with 99 where there is no such process.

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
