#include "resume/resume_arguments.h"

#include <vector>

#include "driver/command_line.h"
#include "platform/shell.h"
#include "text/decimal.h"
#include "text/utf8.h"
#include "update/command_line_text.h"

namespace tolvarine::updater::application {
namespace {

std::vector<std::u16string> Split(const char16_t* command_line) {
  std::int32_t count = 0;
  char16_t** const arguments = platform::CommandLineToArgvW(command_line, &count);
  if (arguments == nullptr) return {};
  std::vector<std::u16string> split(arguments, arguments + count);
  platform::LocalFree(arguments);
  return split;
}

template <typename Number>
bool FillNumber(const std::u16string& text, Number& number) {
  const auto parsed = ParseDecimal<Number>(std::string(text.begin(), text.end()));
  number = parsed.value_or(0);
  return parsed && number != 0;
}

}  // namespace

std::optional<ResumeArguments> ParseResumeArguments(const char16_t* command_line) {
  const std::vector<std::u16string> line = Split(command_line);
  ResumeArguments arguments;
  if (line.size() == 1) return arguments;
  if (line.size() == 2 && line[1] == u"--start") {
    arguments.start_application = true;
    return arguments;
  }
  const bool named =
      line.size() >= 3 && line[1] == u"--update" && IsInstallationIdentifier(line[2]);
  if (!named) return std::nullopt;
  arguments.update_id = line[2];
  if (line.size() == 3) return arguments;
  const bool complete = line.size() == 7 && line[3] == u"--wait-pid" &&
                        line[5] == u"--wait-process-created-at" &&
                        FillNumber(line[4], arguments.wait_pid) &&
                        FillNumber(line[6], arguments.wait_process_created_at);
  return complete ? std::optional(arguments) : std::nullopt;
}

std::u16string ResumeCommandLine(const Path& resumer, const ResumeArguments& arguments) {
  std::u16string line = QuoteArgument(resumer);
  if (arguments.start_application) line += u" --start";
  if (!arguments.update_id.empty()) line += u" --update " + arguments.update_id;
  if (arguments.wait_pid != 0) {
    line += u" --wait-pid " + Utf16FromUtf8(std::to_string(arguments.wait_pid)) +
            u" --wait-process-created-at " +
            Utf16FromUtf8(std::to_string(arguments.wait_process_created_at));
  }
  return line;
}

}  // namespace tolvarine::updater::application
