#include "update_tool/console.h"

#include <windows.h>

#include <algorithm>

#include "text/utf8.h"

namespace tolvarine::updater::update_tool {
namespace {

constexpr DWORD kPathCapacity = 32768;  // Units; no path is longer.
constexpr std::uint64_t kShowEveryMs = 100;

HANDLE StreamOf(Channel channel) {
  return GetStdHandle(channel == Channel::kOutput ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
}

bool IsConsole(HANDLE stream) {
  DWORD mode = 0;
  return GetConsoleMode(stream, &mode) != FALSE;
}

std::string_view NameOf(application::ProgressStep step) {
  switch (step) {
    case application::ProgressStep::Comparing:
      return "comparing";
    case application::ProgressStep::Staging:
      return "staging";
    case application::ProgressStep::Keeping:
      break;
  }
  return "keeping copies";
}

}  // namespace

void Print(Channel channel, std::string_view text) {
  const HANDLE stream = StreamOf(channel);
  DWORD written = 0;
  if (IsConsole(stream)) {
    const std::u16string wide = Utf16FromUtf8(text);
    WriteConsoleW(stream, wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
  } else {
    WriteFile(stream, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
  }
}

Path ProgramDirectory() {
  Path path(kPathCapacity, u'\0');
  path.resize(GetModuleFileNameW(nullptr, reinterpret_cast<wchar_t*>(path.data()), kPathCapacity));
  return ParentPath(path);
}

ProgressLine::ProgressLine() : last_shown_ms_(GetTickCount64()) {}

bool ProgressLine::Show(const application::Progress& progress) {
  const std::uint64_t now = GetTickCount64();
  // What is done at once is not shown, and what is shown is shown to its end.
  const bool last = progress.done == progress.total && width_ != 0;
  if (now - last_shown_ms_ < kShowEveryMs && !last) return true;
  if (!IsConsole(StreamOf(Channel::kError))) return true;
  last_shown_ms_ = now;
  constexpr std::uint64_t kMegabyte = 1000000;
  std::string line = "\r";
  line.append(NameOf(progress.step)).append(": ");
  line += std::to_string(progress.done / kMegabyte) + " of " +
          std::to_string(progress.total / kMegabyte) + " MB";
  const std::size_t width = line.size();
  line.resize(std::max(width, width_), ' ');
  width_ = width;
  Print(Channel::kError, line);
  return true;
}

void ProgressLine::Clear() {
  if (width_ == 0) return;
  Print(Channel::kError, "\r" + std::string(width_, ' ') + "\r");
  width_ = 0;
}

}  // namespace tolvarine::updater::update_tool
