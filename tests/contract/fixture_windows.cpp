#include "contract/fixture.h"

#include <cstdlib>
#include <future>
#include <stdexcept>
#include <thread>

#include "platform/windows/native.h"

namespace tolvarine::updater::contract {

namespace {

// Throws where the setup of a test fails.
void Must(BOOL done, const char* what) {
  if (done == FALSE) throw std::runtime_error(what + (" gave " + std::to_string(::GetLastError())));
}

Path FinalPath(const Path& directory) {
  const File file(Open(directory, kFileReadAttributes));
  char16_t path[MAX_PATH] = {};
  Must(GetFinalPathNameByHandleW(file.handle, path, MAX_PATH, 0) != 0, "a final path");
  return Path(path).substr(4);  // Without `\\?\`.
}

// Also removes read-only files, and paths of any length.
void RemoveTree(const Path& extended) {
  WIN32_FIND_DATAW found = {};
  const HANDLE find = ::FindFirstFileW(Wide((extended + u"\\*").c_str()), &found);
  for (bool more = find != INVALID_HANDLE_VALUE; more; more = ::FindNextFileW(find, &found) != 0) {
    const Path name = reinterpret_cast<const char16_t*>(found.cFileName);
    const Path path = extended + u"\\" + name;
    if (name == u"." || name == u"..") continue;
    ::SetFileAttributesW(Wide(path.c_str()), FILE_ATTRIBUTE_NORMAL);
    if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) RemoveTree(path);
    ::DeleteFileW(Wide(path.c_str()));
  }
  ::FindClose(find);
  ::RemoveDirectoryW(Wide(extended.c_str()));
}

}  // namespace

bool OnWine(WineVersions versions) {
  using GetVersion = const char*(CDECL*)();
  const auto get_version = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version")));
  if (get_version == nullptr) return false;
  switch (std::atoi(get_version())) {  // The major version of "8.0" or "10.0-rc1".
    case 8:
      return (versions & kWine8) != 0;
    case 10:
      return (versions & kWine10) != 0;
    default:
      return false;
  }
}

bool RunsAsHostRoot() {
  wchar_t name[8] = {};
  ::GetEnvironmentVariableW(L"USERNAME", name, 8);
  return std::wstring_view(name) == L"root";
}

Scratch MakeScratch() {
  static int number = 0;
  char16_t temporary[MAX_PATH] = {};
  Must(::GetTempPathW(MAX_PATH, Wide(temporary)) != 0, "GetTempPathW");
  const std::string name =
      "Contract " + std::to_string(GetCurrentProcessId()) + " " + std::to_string(++number);
  const Path root = FinalPath(temporary) + u"\\" + Path(name.begin(), name.end());
  Must(::CreateDirectoryW(Wide(root.c_str()), nullptr), "CreateDirectoryW");
  return {root, std::shared_ptr<void>(nullptr, [root](void*) { RemoveTree(u"\\\\?\\" + root); })};
}

void MakeHardLink(const Path& existing, const Path& path) {
  Must(::CreateHardLinkW(Wide(path.c_str()), Wide(existing.c_str()), nullptr), "CreateHardLinkW");
}

void SetAttributes(const Path& path, std::uint32_t attributes) {
  Must(::SetFileAttributesW(Wide(path.c_str()), attributes), "SetFileAttributesW");
}

OtherProcess StartProcess() {
  wchar_t self[MAX_PATH] = {};
  ::GetModuleFileNameW(nullptr, self, MAX_PATH);
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process = {};
  Must(::CreateProcessW(self, nullptr, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                        &startup, &process),
       "CreateProcessW");
  ::CloseHandle(process.hThread);
  const auto end = [handle = process.hProcess] {
    ::TerminateProcess(handle, 0);
    ::WaitForSingleObject(handle, INFINITE);
  };
  return {process.dwProcessId, end, [handle = process.hProcess] { ::CloseHandle(handle); }};
}

std::function<void(Leaving)> HoldElsewhere(const std::u16string& name) {
  const auto taken = std::make_shared<std::promise<void>>();
  const auto order = std::make_shared<std::promise<Leaving>>();
  const auto holder = std::make_shared<std::thread>([=] {
    const HANDLE mutex = ::CreateMutexW(nullptr, FALSE, Wide(name.c_str()));
    ::WaitForSingleObject(mutex, INFINITE);
    taken->set_value();
    if (order->get_future().get() == Leaving::kReleasing) ::ReleaseMutex(mutex);
    ::CloseHandle(mutex);
  });
  taken->get_future().wait();
  return [=](Leaving how) {
    order->set_value(how);
    holder->join();
  };
}

}  // namespace tolvarine::updater::contract
