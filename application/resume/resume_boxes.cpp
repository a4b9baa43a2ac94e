#include "resume/resume_boxes.h"

#include "platform/shell.h"
#include "text/utf8.h"
#include "update/sentences.h"

namespace tolvarine::updater::application {
namespace {

constexpr char16_t kTitle[] = u"Update not finished";
constexpr std::uint32_t kRetryOrCancel = 0x5;  // MB_RETRYCANCEL
constexpr std::int32_t kRetry = 4;             // IDRETRY

std::int32_t ShowBox(const std::string& text, std::uint32_t type) {
  return platform::MessageBoxW(Utf16FromUtf8(text).c_str(), kTitle, type);
}

}  // namespace

bool AskToEndProcesses(const std::vector<RunningProcess>& processes) {
  std::string text = "The update waits for these programs to end:\n\n";
  for (const RunningProcess& process : processes) {
    text += Utf8Of(process.image) + " (process " + std::to_string(process.id) + ")\n";
  }
  text +=
      "\nClose them, then choose Retry. After Cancel the update goes on when you log on the next "
      "time.";
  return ShowBox(text, kRetryOrCancel | platform::kMessageBoxIconWarning) == kRetry;
}

void ShowStuckUpdate(const WorkspaceStatus& workspace, const std::string& cause) {
  const WorkspaceState state = workspace.report.state;
  std::string text(SentenceOf(ContentOf(state)));
  if (!cause.empty()) text += "\n\n" + cause;
  if (state == WorkspaceState::Damaged || state == WorkspaceState::Foreign) {
    text += "\n\nInstall the full package of the application.";
  } else if (IsUnfinished(state)) {
    text +=
        "\n\nRestart the computer. The update goes on when you log on; until then, do not start "
        "the application.";
  }
  if (!workspace.report.path.empty()) text += "\n\n" + Quoted(workspace.report.path);
  ShowBox(text, platform::kMessageBoxIconError);
}

void ShowProblem(const std::string& text) { ShowBox(text, platform::kMessageBoxIconError); }

}  // namespace tolvarine::updater::application
