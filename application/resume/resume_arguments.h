// The resumer's command line.
//
//     TolvarineResume.exe                     resumes what an interruption has left; runs at logon
//     TolvarineResume.exe --start             the same, then starts the application; for a shortcut
//     TolvarineResume.exe --update ID [--wait-pid PID --wait-process-created-at TIME]
//                                             supervises an update that was just asked for

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct ResumeArguments {
  bool start_application = false;
  std::u16string update_id{};  // Empty where no update was just asked for.
  std::uint32_t wait_pid = 0;  // The process whose end the updater waits for; 0 for none.
  std::uint64_t wait_process_created_at = 0;  // A raw file time.
};

// Nothing for a command line of any other form.
[[nodiscard]] std::optional<ResumeArguments> ParseResumeArguments(const char16_t* command_line);

// The command line that starts a resumer with these arguments.
[[nodiscard]] std::u16string ResumeCommandLine(const Path& resumer,
                                               const ResumeArguments& arguments);

}  // namespace tolvarine::updater::application
