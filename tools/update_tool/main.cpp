// TolvarineUpdateTool: the verbs of the application's side, for a console, a script or any program.

#include <exception>
#include <string>
#include <vector>

#include "platform/shell.h"
#include "reasons/sentences.h"
#include "update_tool/commands.h"
#include "update_tool/console.h"

namespace tolvarine::updater::update_tool {
namespace {

int Run() {
  std::int32_t count = 0;
  char16_t** const vector = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  if (vector == nullptr) return kWrongUsage;
  const std::vector<std::u16string_view> arguments(vector + 1, vector + count);
  ProgressLine progress;
  const Surroundings surroundings{
      .print = [&](std::string_view text) { progress.Clear(), Print(Channel::kOutput, text); },
      .print_error = [&](std::string_view text) { progress.Clear(), Print(Channel::kError, text); },
      .progress = [&](const application::Progress& state) { return progress.Show(state); },
      .program_directory = ProgramDirectory()};
  const int code = RunCommand(ParseLine(arguments), surroundings);
  platform::LocalFree(vector);
  return code;
}

}  // namespace
}  // namespace tolvarine::updater::update_tool

int main() { return tolvarine::updater::update_tool::Run(); }
