// as_user PROGRAM ARGUMENT...: starts a program without an administrator's rights, with the same
// input and output, waits until it ends, and ends with its exit code; with 99 where it cannot be
// started.
//
// Under Wine every program has an administrator's rights, which the tools refuse. The token that is
// linked to its own lacks them.

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

constexpr int kCannotStart = 99;

// The rest of the command line, as it was given. The program's own name ends at a blank, or at its
// second quotation mark.
std::wstring ArgumentsOf(std::wstring_view line) {
  const std::size_t end = line.starts_with(L'"') ? line.find(L'"', 1) : line.find(L' ');
  const std::size_t begin = line.find_first_not_of(L" \t", end == line.npos ? end : end + 1);
  return std::wstring(begin == line.npos ? std::wstring_view() : line.substr(begin));
}

// Null where there is none.
HANDLE LinkedToken() {
  HANDLE own = nullptr;
  TOKEN_LINKED_TOKEN linked = {};
  DWORD size = 0;
  HANDLE token = nullptr;
  if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &own) == FALSE ||
      GetTokenInformation(own, TokenLinkedToken, &linked, sizeof linked, &size) == FALSE ||
      DuplicateTokenEx(linked.LinkedToken, MAXIMUM_ALLOWED, nullptr, SecurityImpersonation,
                       TokenPrimary, &token) == FALSE) {
    return nullptr;
  }
  return token;
}

}  // namespace

int main() {
  std::wstring line = ArgumentsOf(GetCommandLineW());
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  const HANDLE token = LinkedToken();
  if (line.empty() || token == nullptr ||
      CreateProcessAsUserW(token, nullptr, line.data(), nullptr, nullptr, /*bInheritHandles=*/TRUE,
                           0, nullptr, nullptr, &startup, &process) == FALSE) {
    std::fprintf(stderr, "as_user: error %lu\n", GetLastError());
    return kCannotStart;
  }
  DWORD code = kCannotStart;
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &code);
  return static_cast<int>(code);
}
