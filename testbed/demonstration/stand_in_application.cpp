// A stand-in for the application. Its version is what follows the last line feed of its own file,
// so that one build serves for all versions.
//
//   Tolvarine.exe
//       writes "restarted.txt" into its own directory: its version, its working directory and its
//       own path, each on a line
//   Tolvarine.exe --update FILE NOTE
//       appends its own process, as the one to wait for, to the command line in FILE, which starts
//       an update, and runs it. What that prints becomes NOTE. Ends when somebody has removed that,
//       so that one can open the updater's process before the updater begins to work
//   Tolvarine.exe --until EVENT
//       ends when the event of that name is signalled
//
// All texts are UTF-8. Ends with 1 where it could not do what was asked.

#include <windows.h>

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "platform/shell.h"
#include "text/decimal.h"
#include "text/utf8.h"

namespace {

namespace platform = tolvarine::updater::platform;
using tolvarine::updater::FileHandle;
using tolvarine::updater::Path;
using tolvarine::updater::Utf8FromUtf16;

constexpr DWORD kPathCapacity = 32768;  // Units; no path is longer.
constexpr DWORD kPollInterval = 10;     // Milliseconds.

wchar_t* Wide(std::u16string& text) { return reinterpret_cast<wchar_t*>(text.data()); }

std::string ReadText(const Path& path) {
  const FileHandle file(platform::CreateFileW(path.c_str(), platform::kGenericRead,
                                              platform::kFileShareAll, platform::kOpenExisting, 0));
  std::int64_t size = 0;
  if (!file || !platform::GetFileSizeEx(file.get(), &size)) tolvarine::updater::ThrowLastError();
  std::string text(static_cast<std::size_t>(size), '\0');
  std::uint32_t read = 0;
  if (!platform::ReadFile(file.get(), text.data(), static_cast<std::uint32_t>(size), &read)) {
    tolvarine::updater::ThrowLastError();
  }
  return text;
}

// A reader finds the file whole or not at all.
void Publish(const Path& path, std::string_view text) {
  const Path temporary = path + u".tmp";
  {
    const FileHandle file(platform::CreateFileW(temporary.c_str(), platform::kGenericWrite,
                                                platform::kFileShareNone, platform::kCreateAlways,
                                                platform::kFileAttributeNormal));
    std::uint32_t written = 0;
    if (!file || !platform::WriteFile(file.get(), text.data(),
                                      static_cast<std::uint32_t>(text.size()), &written)) {
      tolvarine::updater::ThrowLastError();
    }
  }
  tolvarine::updater::ReplaceFileDurably(temporary, path);
}

// Runs a command line to its end, with its output in a new file. Returns its exit code.
DWORD Run(const std::string& line, const Path& output) {
  std::u16string wide = tolvarine::updater::Utf16FromUtf8(line);
  Path file = output;
  SECURITY_ATTRIBUTES inherit = {sizeof inherit, nullptr, /*bInheritHandle=*/TRUE};
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = CreateFileW(Wide(file), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                   CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  startup.hStdError = startup.hStdOutput;
  PROCESS_INFORMATION process{};
  if (startup.hStdOutput == INVALID_HANDLE_VALUE ||
      CreateProcessW(nullptr, Wide(wide), nullptr, nullptr, /*bInheritHandles=*/TRUE,
                     DETACHED_PROCESS, nullptr, nullptr, &startup, &process) == FALSE) {
    tolvarine::updater::ThrowLastError();
  }
  DWORD code = 0;
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  CloseHandle(startup.hStdOutput);
  return code;
}

void Update(const Path& line_file, const Path& note) {
  std::string line = ReadText(line_file);
  while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
  line.append(" --wait ");
  tolvarine::updater::AppendDecimal(line, GetCurrentProcessId());
  const Path unfinished = note + u".tmp";
  const DWORD code = Run(line, unfinished);
  tolvarine::updater::ReplaceFileDurably(unfinished, note);
  if (code != 0) throw std::runtime_error("no update was started");
  while (platform::GetFileAttributesW(note.c_str()) != platform::kInvalidFileAttributes) {
    Sleep(kPollInterval);
  }
}

void Report() {
  Path program(kPathCapacity, u'\0');
  program.resize(GetModuleFileNameW(nullptr, Wide(program), kPathCapacity));
  Path directory(kPathCapacity, u'\0');
  directory.resize(GetCurrentDirectoryW(kPathCapacity, Wide(directory)));
  const std::string file = ReadText(program);
  Publish(tolvarine::updater::JoinPath(tolvarine::updater::ParentPath(program), u"restarted.txt"),
          "version " + file.substr(file.rfind('\n') + 1) + "\nworking directory " +
              Utf8FromUtf16(directory) + "\nprogram " + Utf8FromUtf16(program) + "\n");
}

void WaitUntil(Path event_name) {
  const HANDLE event = OpenEventW(SYNCHRONIZE, /*bInheritHandle=*/FALSE, Wide(event_name));
  if (event == nullptr || WaitForSingleObject(event, INFINITE) != WAIT_OBJECT_0) {
    tolvarine::updater::ThrowLastError();
  }
}

void Act(std::int32_t count, char16_t** arguments) {
  const std::u16string_view option = count > 1 ? arguments[1] : u"";
  if (count == 1) return Report();
  if (count == 4 && option == u"--update") return Update(arguments[2], arguments[3]);
  if (count == 3 && option == u"--until") return WaitUntil(arguments[2]);
  throw std::runtime_error("wrong usage");
}

}  // namespace

int WINAPI WinMain(HINSTANCE, HINSTANCE, LPSTR, int) {
  std::int32_t count = 0;
  char16_t** const arguments = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  try {
    Act(count, arguments);
    return 0;
  } catch (const std::exception&) {
    return 1;
  }
}
