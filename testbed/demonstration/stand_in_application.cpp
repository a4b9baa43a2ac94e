// A stand-in for the application. Its version is what follows the last line feed of its own file,
// so that one build serves for all versions.
//
//   Tolvarine.exe
//       writes "restarted.txt" into its own directory: its version, its working directory and its
//       own path, each on a line
//   Tolvarine.exe --update FILE NOTE
//       appends its own process to the updater's command line in FILE and starts the updater with
//       it; writes the updater's process id and the whole line to NOTE, and ends when somebody has
//       removed that, so that one can open the updater's process before the updater begins to work
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

void AppendOwnProcess(std::string& line) {
  FILETIME created{};
  FILETIME other{};
  GetProcessTimes(GetCurrentProcess(), &created, &other, &other, &other);
  line.append(" --wait-pid ");
  tolvarine::updater::AppendDecimal(line, GetCurrentProcessId());
  line.append(" --wait-process-created-at ");
  tolvarine::updater::AppendDecimal(
      line, std::uint64_t{created.dwHighDateTime} << 32 | created.dwLowDateTime);
}

// Returns its process id.
DWORD Start(const std::string& line) {
  std::u16string wide = tolvarine::updater::Utf16FromUtf8(line);
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};
  if (CreateProcessW(nullptr, Wide(wide), nullptr, nullptr, /*bInheritHandles=*/FALSE, 0, nullptr,
                     nullptr, &startup, &process) == FALSE) {
    tolvarine::updater::ThrowLastError();
  }
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  return process.dwProcessId;
}

void Update(const Path& line_file, const Path& note) {
  std::string line = ReadText(line_file);
  while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
  AppendOwnProcess(line);
  std::string text;
  tolvarine::updater::AppendDecimal(text, Start(line));
  Publish(note, text + "\n" + line);
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
