// Processes that are started for real: the updater with its message boxes, and the application that
// it waits for.

#pragma once

#include <windows.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace tolvarine::updater::end_to_end {

// Polls until the condition holds; false when it does not within so many seconds.
[[nodiscard]] bool Eventually(const std::function<bool()>& condition, int seconds = 30);

// The updater or a program of this suite: they lie where this very program does.
[[nodiscard]] std::filesystem::path ProgramPath(std::string_view name);

// A process. Its destructor terminates it if it still runs.
class RealProcess {
 public:
  // `security` may deny others access to the process. Throws std::runtime_error.
  explicit RealProcess(std::u16string command_line, SECURITY_ATTRIBUTES* security = nullptr);
  // One that another has started. It must still run. Throws std::runtime_error.
  explicit RealProcess(std::uint32_t id);
  RealProcess(const RealProcess&) = delete;
  RealProcess& operator=(const RealProcess&) = delete;
  ~RealProcess();

  [[nodiscard]] std::uint32_t id() const { return process_.dwProcessId; }
  [[nodiscard]] std::uint64_t CreationTime() const;  // A raw file time.
  [[nodiscard]] double Seconds() const;              // From its start to its end, or to now.
  [[nodiscard]] bool Running() const;
  void Kill();  // With exit code 99.

  // Waits for the next box and returns it as ErrorBox and WarningBox do; the box stays open.
  // Returns an empty text when the process ends without one. Throws std::runtime_error after 100
  // seconds.
  [[nodiscard]] std::string AwaitBox();

  // Closes every box by its button and waits for the end. Returns the text of each box, then that
  // of the exit code. Throws std::runtime_error where a box stays, or neither a box nor the end
  // comes within 100 seconds.
  [[nodiscard]] std::string Finish();

 private:
  [[nodiscard]] HWND NextBox();

  PROCESS_INFORMATION process_ = {};
};

// The texts that Finish returns, and how that of an error box begins.
[[nodiscard]] std::string BoxStart(std::string_view text);
[[nodiscard]] std::string ErrorBox(std::string_view text);
[[nodiscard]] std::string WarningBox(std::string_view text);
[[nodiscard]] std::string Exit(std::uint32_t code);

// The application, running until End is called.
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
