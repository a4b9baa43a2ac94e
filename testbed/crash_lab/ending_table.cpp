// The table of endings: what each exit code promises about boxes, log, markers, restart and target.

#include <algorithm>

#include "crash_lab/checker.h"

namespace tolvarine::updater::crash_lab {
namespace {

constexpr std::u16string_view kErrorTitle = u"Could not install update";
constexpr std::u16string_view kWarningTitle = u"Update installed";
constexpr std::u16string_view kRestored =
    u"The update failed. The original installation was restored.";
constexpr std::u16string_view kIncomplete =
    u"The update failed and rollback is incomplete. Retry the update before using the application.";
constexpr std::u16string_view kCorrupt =
    u"The update transaction state is corrupt. No cleanup was attempted; the protected update "
    u"workspace was preserved.";
constexpr std::u16string_view kDeferred =
    u"The files were installed, but update cleanup could not be completed.";
constexpr std::u16string_view kNotRestarted =
    u"The update was installed, but the application could not be restarted.";
constexpr std::uint32_t kErrorIcon = 16;
constexpr std::uint32_t kWarningIcon = 48;

// The one record that the log must hold for a box.
std::string RecordOf(const simulated::Box& box) {
  std::string record = box.type == kErrorIcon ? "[ERROR] [Updater] " : "[WARNING] [Updater] ";
  for (const char16_t unit : box.text) {
    if (unit == u'\n') {
      record += "\\n";
    } else {
      record += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
  }
  return record + "\r\n";
}

bool IsBox(const simulated::Box& box, std::u16string_view title, std::uint32_t type,
           std::u16string_view text) {
  return box.title == title && box.type == type && box.text.starts_with(text);
}

// Every box has its record, in order, and there is no other new record.
bool LogMatchesBoxes(const RunEnd& end) {
  if (!end.log_after.starts_with(end.log_before)) return false;
  std::string_view rest = std::string_view(end.log_after).substr(end.log_before.size());
  for (const simulated::Box& box : end.boxes) {
    const std::string record = RecordOf(box);
    const std::size_t line = rest.find("\r\n");
    if (line == std::string_view::npos || !rest.substr(0, line + 2).ends_with(record)) return false;
    rest.remove_prefix(line + 2);
  }
  return rest.empty();
}

}  // namespace

std::string Checker::FaultOfSuccess(const RunEnd& end, const Image& after) const {
  if (!end.boxes.empty()) return "exit 0 with a box";
  if (!IsRightRestart(end)) return "exit 0 without the right restart";
  if (!MarkerMoved(after)) return "exit 0 and the markers are not moved";
  const bool stays = Find(after, archive_) != nullptr && end.cleanup_undisturbed;
  return stays ? "exit 0 and the archive stays" : "";
}

std::string Checker::FaultOfFailure(const RunEnd& end, const Image& after) const {
  const auto one_box = [&](std::u16string_view text) {
    return end.boxes.size() == 1 && IsBox(end.boxes[0], kErrorTitle, kErrorIcon, text);
  };
  if (!end.starts.empty()) return "exit 5 and a restart";
  // A run that failed before it adopted the journal has the same text.
  if (one_box(kRestored)) {
    const bool sound = IsNearlyBaseline(after) || !end.changed_names;
    return sound ? "" : "said to be restored, and is not";
  }
  return one_box(kIncomplete) || one_box(kCorrupt) ? "" : "exit 5 with another box";
}

bool Checker::IsRightRestart(const RunEnd& end) const {
  if (end.starts.size() != 1) return false;
  const simulated::ShellStart& start = end.starts.front();
  return start.verb == restart_.verb && start.file == restart_.file &&
         start.directory == restart_.directory && start.show == restart_.show;
}

std::string Checker::TableFault(const RunEnd& end, const Image& after) const {
  if (end.entry_point != EntryPoint::kMainSequence) return {};
  const bool disturbed = end.disturbance != Disturbance::kNone;
  if (!disturbed && !LogMatchesBoxes(end)) return "the log does not hold the texts of the boxes";
  const bool installs = end.exit_code == 0 || end.exit_code == 6 || end.exit_code == 7;
  if (installs && !IsNearlyInstalled(after)) return "exit 0, 6 or 7 and not installed";
  // Where nothing but a write failed, a run that ends with one of these has adopted a journal.
  const bool adopted = installs || end.exit_code == 5;
  if (adopted && end.cleanup_undisturbed && Find(after, launched_) != nullptr) {
    return "a transaction was run and launched.json stays";
  }
  return FaultOfExitCode(end, after);
}

std::string Checker::FaultOfExitCode(const RunEnd& end, const Image& after) const {
  const bool disturbed = end.disturbance != Disturbance::kNone;
  switch (end.exit_code) {
    case 0:
      return FaultOfSuccess(end, after);
    case 5:
      return FaultOfFailure(end, after);
    case 6:
      return IsBox(end.boxes.back(), kErrorTitle, kErrorIcon, kNotRestarted) ? ""
                                                                             : "exit 6, other box";
    case 7:
      if (end.boxes.size() != 1) return "exit 7 without its box";
      if (!IsRightRestart(end)) return "exit 7 without the right restart";
      return IsBox(end.boxes[0], kWarningTitle, kWarningIcon, kDeferred) ? "" : "exit 7, other box";
    case 2:
    case 3:
    case 4:
      if (end.boxes.size() != 1) return "exit 2, 3 or 4 without its box";
      return disturbed ? "" : "exit 2, 3 or 4 for a sound request";
    default:
      return "an exit code that the table does not hold";
  }
}

void Checker::CheckCutAfterEnd(const RunEnd& end, const Image& after, const Image& left,
                               Figures& figures) {
  if (end.entry_point != EntryPoint::kMainSequence) return;
  const bool installs = end.exit_code == 0 || end.exit_code == 6 || end.exit_code == 7;
  if (installs) {
    const bool kept = IsNearlyInstalled(left) && (end.exit_code != 0 || MarkerMoved(left));
    Check(figures, Invariant::kEndLasts, kept, "a power cut takes an installed update back");
  } else if (!end.boxes.empty() && end.boxes[0].text.starts_with(kRestored)) {
    // A run that failed before it adopted the journal promises nothing about what it found.
    Check(figures, Invariant::kEndLasts, IsNearlyBaseline(left) || !IsNearlyBaseline(after),
          "a power cut takes a restored baseline back");
  }
}

}  // namespace tolvarine::updater::crash_lab
