// TolvarineStage: checks a release, stages an update, and prints or runs the updater's command
// line.

#include "files/file_operations.h"
#include "lists/list_text.h"
#include "platform/shell.h"
#include "stage/console.h"
#include "stage/stage_options.h"
#include "text/decimal.h"
#include "text/hex.h"
#include "text/utf8.h"

namespace tolvarine::updater::stage {
namespace {

constexpr int kDone = 0;
constexpr int kProblems = 1;
constexpr int kWrongUsage = 64;

int Report(const staging::Problems& problems) {
  for (const std::string& problem : problems) Print(Channel::kError, problem + "\n");
  return problems.empty() ? kDone : kProblems;
}

void ResolvePaths(StageOptions& options) {
  staging::StagingRequest& request = options.request;
  request.release = staging::FullPath(request.release);
  request.updater = options.updater.empty() ? JoinPath(ProgramDirectory(), request.updater)
                                            : staging::FullPath(options.updater);
}

staging::Problems AddDerivedDeletions(StageOptions& options) {
  if (options.previous.empty()) return {};
  const Path previous = staging::FullPath(options.previous);
  if (QueryStatus(previous).kind != FileKind::directory) {
    return {"The earlier release " + staging::Quoted(previous) + " is not a directory."};
  }
  const ManagedDeletionList derived = staging::DeletionsSince(previous, options.request.release);
  ManagedDeletionList& deletions = options.request.deletions;
  deletions.insert(deletions.end(), derived.begin(), derived.end());
  return {};
}

// Returns the problems of a release, or of an update if the request names an installation. The
// identifiers are placeholders, since only their length matters here.
staging::Problems FindProblems(staging::StagingRequest& request) {
  if (request.target.empty()) return staging::CheckRelease(request.release, request.deletions);
  request.install_key.assign(kSha256DigitCount, u'0');
  request.update_id = request.install_key;
  return staging::PlanUpdate(request).problems;
}

void PrintFit(const staging::StagingRequest& request) {
  const SourceInventory inventory = staging::InventoryOf(request.release);
  std::string line = "The release is fit. Files: ";
  AppendDecimal(line, inventory.size());
  line.append(", in a list of ");
  AppendDecimal(line, SerializeSourceInventory(inventory).size());
  line.append(" of ");
  AppendDecimal(line, kListTextByteLimit);
  line.append(" bytes. Deletions: ");
  AppendDecimal(line, request.deletions.size());
  Print(Channel::kOutput, line + ".\n");
}

int Check(StageOptions& options) {
  const staging::Problems problems = FindProblems(options.request);
  if (problems.empty()) PrintFit(options.request);
  return Report(problems);
}

// Prints the identifier to the error channel, so that --print writes only the command line to the
// output.
void MakeUp(std::u16string& identifier, std::string_view name) {
  if (!identifier.empty()) return;
  identifier = RandomIdentifier();
  Print(Channel::kError, std::string(name) + " " + Utf8FromUtf16(identifier) + "\n");
}

std::u16string CommandLine(const StageOptions& options, const UpdaterArguments& arguments) {
  std::u16string line = staging::CommandLineOf(options.request.updater, arguments);
  // The wait options are last, so everything from the first of them on is removed.
  if (options.without_wait) line.resize(line.rfind(u" --wait-pid "));
  return line;
}

int Stage(StageOptions& options) {
  MakeUp(options.request.install_key, "--install-key");
  MakeUp(options.request.update_id, "--update-id");
  staging::StagedUpdate staged = staging::StageUpdate(options.request);
  if (!staged.problems.empty()) return Report(staged.problems);
  staged.arguments.wait_pid = options.wait_pid;
  staged.arguments.wait_process_created_at = options.wait_process_created_at;
  staged.arguments.has_wait_process_created_at = options.wait_pid != 0;
  const std::u16string line = CommandLine(options, staged.arguments);
  if (options.run) return static_cast<int>(RunProgram(options.request.updater, line));
  Print(Channel::kOutput, Utf8FromUtf16(line) + "\n");
  return kDone;
}

int Run(const std::vector<std::u16string_view>& arguments) {
  ParsedOptions parsed = ParseOptions(arguments);
  if (!parsed.options) {
    Print(Channel::kError, "TolvarineStage: " + parsed.refusal + "\n");
    return kWrongUsage;
  }
  StageOptions& options = *parsed.options;
  if (options.command == Command::kHelp) {
    Print(Channel::kOutput, kHelpText);
    return kDone;
  }
  ResolvePaths(options);
  const staging::Problems problems = AddDerivedDeletions(options);
  if (!problems.empty()) return Report(problems);
  return options.command == Command::kCheck ? Check(options) : Stage(options);
}

}  // namespace
}  // namespace tolvarine::updater::stage

int main() {
  namespace stage = tolvarine::updater::stage;
  namespace platform = tolvarine::updater::platform;
  std::int32_t count = 0;
  char16_t** const vector = platform::CommandLineToArgvW(platform::GetCommandLineW(), &count);
  try {
    return stage::Run({vector + 1, vector + count});
  } catch (const std::exception& failure) {
    stage::Print(stage::Channel::kError, tolvarine::updater::staging::FailureText(failure) + "\n");
    return 1;
  }
}
