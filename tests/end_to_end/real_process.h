// Programs that are started for real: the updater with its message boxes, and the application that
// it has to wait for.

#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace tolvarine::updater::end_to_end {

[[nodiscard]] std::string Utf8(std::u16string_view text);

// Polls until the condition holds; false when that many seconds did not bring it.
[[nodiscard]] bool Eventually(const std::function<bool()>& condition, int limit = 30);

// The updater or a program of this suite: they lie where this very program does.
[[nodiscard]] std::filesystem::path ProgramPath(std::string_view name);

// A process, ended by force if it still runs when its owner goes.
class RealProcess {
 public:
  // `security` may deny others the access to the process. Throws std::runtime_error.
  explicit RealProcess(std::u16string command_line, SECURITY_ATTRIBUTES* security = nullptr);
  RealProcess(const RealProcess&) = delete;
  RealProcess& operator=(const RealProcess&) = delete;
  ~RealProcess();

  [[nodiscard]] std::uint32_t id() const { return process_.dwProcessId; }
  [[nodiscard]] std::uint64_t CreationTime() const;  // A raw file time.
  [[nodiscard]] double Seconds() const;              // From its start to its end, or to now.
  [[nodiscard]] bool Running() const;
  void Kill();  // With exit code 99.

  // What its next box shows, as ErrorBox and WarningBox spell it; the box stays. Empty when the
  // process ends without one.
  [[nodiscard]] std::string AwaitBox();

  // Dismisses every box and waits for the end. A line for each box, then the exit code.
  [[nodiscard]] std::string Finish();

 private:
  [[nodiscard]] HWND NextBox();

  PROCESS_INFORMATION process_ = {};
};

// What Finish tells.
[[nodiscard]] std::string ErrorBox(std::string_view text);
[[nodiscard]] std::string WarningBox(std::string_view text);
[[nodiscard]] std::string Exit(std::uint32_t code);

// The stand-in application, running until it is told to end.
class RunningApplication {
 public:
  explicit RunningApplication(const std::filesystem::path& program,
                              SECURITY_ATTRIBUTES* security = nullptr);
  ~RunningApplication() { CloseHandle(event_); }

  [[nodiscard]] const RealProcess& process() const { return process_; }
  void End() { SetEvent(event_); }

 private:
  std::string event_name_;
  HANDLE event_;
  RealProcess process_;
};

}  // namespace tolvarine::updater::end_to_end
