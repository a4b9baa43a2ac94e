#include "end_to_end/real_process.h"

#include <stdexcept>
#include <vector>

#include "platform/windows/native.h"
#include "text/utf8.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::end_to_end {
namespace {

using platform::Wide;

constexpr DWORD kPollInterval = 10;  // Milliseconds.
constexpr int kProcessLimit = 100;   // Seconds; above the updater's own wait of a minute.

// By the colours on the screen: an icon's handle means nothing in another process. The error icon
// is mainly red, the warning icon yellow.
std::string IconAt(const RECT& area) {
  const HDC screen = GetDC(nullptr);
  int red = 0, yellow = 0;
  for (LONG y = area.top; y < area.bottom; ++y) {
    for (LONG x = area.left; x < area.right; ++x) {
      const COLORREF colour = GetPixel(screen, x, y);
      if (GetRValue(colour) < 160 || GetBValue(colour) > 110) continue;
      ++(GetGValue(colour) < 110 ? red : yellow);
    }
  }
  ReleaseDC(nullptr, screen);
  const LONG enough = (area.right - area.left) * (area.bottom - area.top) / 5;
  if (red > enough) return "error";
  return yellow > enough ? "warning" : "unknown icon";
}

// The box may not have drawn itself yet.
std::string AwaitIcon(HWND box, HWND control) {
  RECT area = {};
  GetWindowRect(control, &area);
  std::string icon;
  static_cast<void>(Eventually([&] {
    SetWindowPos(box, HWND_TOPMOST, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
    icon = IconAt(area);
    return icon != "unknown icon";
  }));
  return icon;
}

std::string TextOf(HWND window) {
  std::u16string text(8192, u'\0');
  DWORD_PTR length = 0;
  SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                      SMTO_ABORTIFHUNG, 10000, &length);
  return Utf8FromUtf16(std::u16string_view(text).substr(0, length));
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
    (is_icon ? icon : text) = is_icon ? AwaitIcon(box, child) : TextOf(child);
  }
  for (const HWND button : Buttons(box)) icon.append("|").append(TextOf(button));
  return "[" + icon.append("] ").append(TextOf(box)).append(": ").append(text) + "\n";
}

// Wine waits two seconds for a window manager whenever a box closes, and a bare display has none.
// This setting makes Wine draw the updater's windows by itself.
bool DoWithoutWindowManager() {
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

bool Eventually(const std::function<bool()>& condition, int seconds) {
  const std::uint64_t end = GetTickCount64() + static_cast<std::uint64_t>(seconds) * 1000;
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
  [[maybe_unused]] static const bool prepared = DoWithoutWindowManager();
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  if (!CreateProcessW(nullptr, Wide(command_line.data()), security, nullptr, FALSE, 0, nullptr,
                      nullptr, &startup, &process_)) {
    throw std::runtime_error("cannot start " + Utf8FromUtf16(command_line.substr(0, 300)));
  }
}

RealProcess::RealProcess(std::uint32_t id) {
  [[maybe_unused]] static const bool prepared = DoWithoutWindowManager();
  process_.dwProcessId = id;
  process_.hProcess = OpenProcess(PROCESS_ALL_ACCESS, FALSE, id);
  if (process_.hProcess == nullptr) throw std::runtime_error("no process " + std::to_string(id));
}

RealProcess::~RealProcess() {
  Kill();
  if (process_.hThread != nullptr) CloseHandle(process_.hThread);
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
  std::string outcome;
  while (const HWND box = NextBox()) {
    outcome += Describe(box);
    for (const HWND button : Buttons(box)) {
      PostMessageW(box, WM_COMMAND, static_cast<WPARAM>(GetDlgCtrlID(button)),
                   reinterpret_cast<LPARAM>(button));
    }
    if (!Eventually([&] { return !IsWindowVisible(box); })) {
      throw std::runtime_error("the box stays: " + outcome);
    }
  }
  DWORD code = 0;
  GetExitCodeProcess(process_.hProcess, &code);
  return outcome + Exit(code);
}

std::string BoxStart(std::string_view text) {
  return std::string("[error|OK] Could not install update: ").append(text);
}

std::string ErrorBox(std::string_view text) { return BoxStart(text) + "\n"; }

std::string WarningBox(std::string_view text) {
  return std::string("[warning|OK] Update installed: ").append(text) + "\n";
}

std::string Exit(std::uint32_t code) { return "exit " + std::to_string(code); }

RunningApplication::RunningApplication(const std::filesystem::path& program,
                                       SECURITY_ATTRIBUTES* security)
    : event_name_("tolvarine-" + std::to_string(GetCurrentProcessId()) + "-" +
                  std::to_string(reinterpret_cast<std::uintptr_t>(this))),
      event_(CreateEventA(nullptr, TRUE, FALSE, event_name_.c_str())),
      process_(application::QuoteArgument(program.u16string()) + u" --until " +
                   std::u16string(event_name_.begin(), event_name_.end()),
               security) {}

}  // namespace tolvarine::updater::end_to_end
