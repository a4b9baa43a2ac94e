#include "end_to_end/real_process.h"

#include <stdexcept>
#include <vector>

#include "platform/windows/native.h"
#include "staging/layout.h"

namespace tolvarine::updater::end_to_end {
namespace {

using platform::Wide;

constexpr DWORD kPollInterval = 10;  // Milliseconds.
constexpr int kProcessLimit = 100;   // Seconds; above the updater's own wait of a minute.
constexpr int kLikeness = 95;        // Per cent of the pixels.

// A bitmap to draw into and to look at.
class Picture {
 public:
  explicit Picture(SIZE size)
      : size_(size), bitmap_(CreateBitmap(size.cx, size.cy, 1, 32, nullptr)) {
    SelectObject(context_, bitmap_);
  }
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  ~Picture() {
    DeleteDC(context_);
    DeleteObject(bitmap_);
  }

  void TakeScreen(POINT corner) {
    const HDC screen = GetDC(nullptr);
    BitBlt(context_, 0, 0, size_.cx, size_.cy, screen, corner.x, corner.y, SRCCOPY);
    ReleaseDC(nullptr, screen);
  }

  // An icon leaves its corner empty: what shows there is the ground that it is drawn on.
  [[nodiscard]] bool Shows(const wchar_t* icon) const {
    Picture expected(size_);
    const RECT all = {0, 0, size_.cx, size_.cy};
    const HBRUSH ground = CreateSolidBrush(GetPixel(context_, 0, 0));
    FillRect(expected.context_, &all, ground);
    DeleteObject(ground);
    DrawIconEx(expected.context_, 0, 0, LoadIconW(nullptr, icon), size_.cx, size_.cy, 0, nullptr,
               DI_NORMAL);
    int same = 0;
    for (int y = 0; y < size_.cy; ++y) {
      for (int x = 0; x < size_.cx; ++x) {
        if (GetPixel(context_, x, y) == GetPixel(expected.context_, x, y)) ++same;
      }
    }
    return same * 100 >= size_.cx * size_.cy * kLikeness;
  }

 private:
  SIZE size_;
  HBITMAP bitmap_;
  HDC context_ = CreateCompatibleDC(nullptr);
};

// The icon is judged by what is on the screen: its handle means nothing in another process.
std::string IconAt(HWND box, HWND control) {
  RECT area = {};
  GetWindowRect(control, &area);
  Picture picture({area.right - area.left, area.bottom - area.top});
  std::string name = "unknown icon";
  static_cast<void>(Eventually([&] {
    SetWindowPos(box, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    picture.TakeScreen({area.left, area.top});
    if (picture.Shows(IDI_ERROR)) name = "error";
    if (picture.Shows(IDI_WARNING)) name = "warning";
    return name != "unknown icon";
  }));
  return name;
}

std::string TextOf(HWND window) {
  std::u16string text(8192, u'\0');
  DWORD_PTR length = 0;
  SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                      SMTO_ABORTIFHUNG, 10000, &length);
  return Utf8(std::u16string_view(text).substr(0, length));
}

bool IsOfClass(HWND window, std::wstring_view name) {
  wchar_t actual[32] = {};
  GetClassNameW(window, actual, 32);
  return actual == name;
}

std::vector<HWND> Buttons(HWND box) {
  std::vector<HWND> buttons;
  for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
    if (IsWindowVisible(child) && IsOfClass(child, L"Button")) buttons.push_back(child);
  }
  return buttons;
}

std::string Describe(HWND box) {
  std::string icon = "no icon";
  std::string text;
  for (HWND child = GetWindow(box, GW_CHILD); child; child = GetWindow(child, GW_HWNDNEXT)) {
    if (!IsOfClass(child, L"Static")) continue;
    const bool is_icon = (GetWindowLongW(child, GWL_STYLE) & SS_TYPEMASK) == SS_ICON;
    (is_icon ? icon : text) = is_icon ? IconAt(box, child) : TextOf(child);
  }
  for (const HWND button : Buttons(box)) icon.append("|").append(TextOf(button));
  return "[" + icon.append("] ").append(TextOf(box)).append(": ").append(text) + "\n";
}

// Wine takes two seconds for every box that closes, waiting for a window manager that a bare
// display does not have. This tells it that the updater's windows have none.
bool LetBoxesCloseAtOnce() {
  if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") == nullptr) return false;
  constexpr wchar_t kNo[] = L"N";
  return RegSetKeyValueW(HKEY_CURRENT_USER,
                         L"Software\\Wine\\AppDefaults\\TolvarineUpdater.exe\\X11 Driver",
                         L"Managed", REG_SZ, kNo, sizeof(kNo)) == ERROR_SUCCESS;
}

std::uint64_t Number(const FILETIME& time) {
  return (std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime;
}

}  // namespace

std::string Utf8(std::u16string_view text) {
  std::string bytes(text.size() * 3, '\0');
  bytes.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, Wide(text.data()), static_cast<int>(text.size()),
                          bytes.data(), static_cast<int>(bytes.size()), nullptr, nullptr)));
  return bytes;
}

bool Eventually(const std::function<bool()>& condition, int limit) {
  const std::uint64_t end = GetTickCount64() + static_cast<std::uint64_t>(limit) * 1000;
  while (!condition()) {
    if (GetTickCount64() > end) return false;
    Sleep(kPollInterval);
  }
  return true;
}

std::filesystem::path ProgramPath(std::string_view name) {
  wchar_t self[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH);
  return std::filesystem::path(self).replace_filename(name);
}

RealProcess::RealProcess(std::u16string command_line, SECURITY_ATTRIBUTES* security) {
  [[maybe_unused]] static const bool prepared = LetBoxesCloseAtOnce();
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  if (!CreateProcessW(nullptr, Wide(command_line.data()), security, nullptr, FALSE, 0, nullptr,
                      nullptr, &startup, &process_)) {
    throw std::runtime_error("cannot start " + Utf8(command_line.substr(0, 300)));
  }
}

RealProcess::~RealProcess() {
  Kill();
  CloseHandle(process_.hThread);
  CloseHandle(process_.hProcess);
}

std::uint64_t RealProcess::CreationTime() const {
  FILETIME created = {}, ended = {}, kernel = {}, user = {};
  GetProcessTimes(process_.hProcess, &created, &ended, &kernel, &user);
  return Number(created);
}

double RealProcess::Seconds() const {
  FILETIME created = {}, ended = {}, kernel = {}, user = {};
  GetProcessTimes(process_.hProcess, &created, &ended, &kernel, &user);
  if (Running()) GetSystemTimeAsFileTime(&ended);
  return static_cast<double>(Number(ended) - Number(created)) / 1e7;
}

bool RealProcess::Running() const {
  return WaitForSingleObject(process_.hProcess, 0) == WAIT_TIMEOUT;
}

void RealProcess::Kill() {
  TerminateProcess(process_.hProcess, 99);
  WaitForSingleObject(process_.hProcess, INFINITE);
}

HWND RealProcess::NextBox() {
  struct Search {
    DWORD process;
    HWND box;
  } search = {id(), nullptr};
  const auto visit = [](HWND window, LPARAM parameter) -> BOOL {
    auto& [process, box] = *reinterpret_cast<Search*>(parameter);
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == process && IsWindowVisible(window) && IsOfClass(window, L"#32770")) box = window;
    return box == nullptr;
  };
  const auto settled = [&] {
    EnumWindows(visit, reinterpret_cast<LPARAM>(&search));
    return search.box != nullptr || !Running();
  };
  if (!Eventually(settled, kProcessLimit)) {
    throw std::runtime_error("neither a box nor the end of the process");
  }
  return search.box;
}

std::string RealProcess::AwaitBox() {
  const HWND box = NextBox();
  return box != nullptr ? Describe(box) : "";
}

std::string RealProcess::Finish() {
  std::string story;
  while (const HWND box = NextBox()) {
    story += Describe(box);
    for (const HWND button : Buttons(box)) {
      PostMessageW(box, WM_COMMAND, static_cast<WPARAM>(GetDlgCtrlID(button)),
                   reinterpret_cast<LPARAM>(button));
    }
    if (!Eventually([&] { return !IsWindowVisible(box); })) {
      throw std::runtime_error("the box stays: " + story);
    }
  }
  DWORD code = 0;
  GetExitCodeProcess(process_.hProcess, &code);
  return story + Exit(code);
}

std::string ErrorBox(std::string_view text) {
  return std::string("[error|OK] Could not install update: ").append(text) + "\n";
}

std::string WarningBox(std::string_view text) {
  return std::string("[warning|OK] Update installed: ").append(text) + "\n";
}

std::string Exit(std::uint32_t code) { return "exit " + std::to_string(code); }

RunningApplication::RunningApplication(const std::filesystem::path& program,
                                       SECURITY_ATTRIBUTES* security)
    : event_name_("tolvarine-" + std::to_string(GetCurrentProcessId()) + "-" +
                  std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      event_(CreateEventA(nullptr, TRUE, FALSE, event_name_.c_str())),
      process_(staging::QuoteArgument(program.u16string()) + u" --until " +
                   std::u16string(event_name_.begin(), event_name_.end()),
               security) {}

}  // namespace tolvarine::updater::end_to_end
