#include "driver/main_sequence.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "driver/installation_lock.h"
#include "driver/update_log.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/objects.h"
#include "support/engine_runs.h"
#include "text/utf8.h"

namespace tolvarine::updater {
namespace {

using simulated::Box;
using Texts = std::vector<std::u16string>;

constexpr char16_t kRestored[] = u"The update failed. The original installation was restored.";
constexpr char16_t kIncomplete[] =
    u"The update failed and rollback is incomplete. Retry the update before using the application.";
constexpr char16_t kDeferred[] =
    u"The files were installed, but update cleanup could not be completed. The application will "
    u"recognize the completed transaction on startup and clean it up later.";
constexpr char16_t kNotRestarted[] =
    u"The update was installed, but the application could not be restarted.";

// The end of the log record for a box.
std::string RecordOf(const Box& box) {
  std::u16string text = box.text;
  for (std::size_t at = 0; (at = text.find(u'\n', at)) != text.npos;) text.replace(at, 1, u"\\n");
  const char* const level = box.type == 48 ? " [WARNING]" : " [ERROR]";
  return level + (" [Updater] " + Utf8FromUtf16(text)) + "\r\n";
}

void ExpectNothingLeftOpen(Computer& computer) {
  EXPECT_EQ(computer.objects().open_handles() + computer.objects().open_hashes(), 0u);
  EXPECT_EQ(computer.files().open_handles() + computer.objects().bad_closes(), 0u);
}

// Runs one process and checks what holds for every exit code: a record is on the disk before its
// box appears, the mutex is held during boxes and restart, and nothing stays open.
std::int32_t RunProcess(SimulatedUpdate& update) {
  Computer& computer = update.computer;
  computer.desktop.boxes.clear();
  computer.calls.trace.clear();
  computer.calls.keep_trace = true;
  computer.desktop.on_box = [&](const Box& box) {
    EXPECT_TRUE(box.type == 16 || box.type == 48) << box.type;
    EXPECT_EQ(box.title, box.type == 48 ? u"Update installed" : u"Could not install update");
    EXPECT_TRUE(UpdateLogPath().empty() || update.Log().ends_with(RecordOf(box))) << update.Log();
  };
  const std::int32_t exit_code = update.Run();
  bool released = false;
  for (const CallRecord& call : computer.calls.trace) {
    released = released || call.call == Call::ReleaseMutex;
    EXPECT_FALSE(released && (call.call == Call::MessageBoxW || call.call == Call::ShellExecuteW));
  }
  ExpectNothingLeftOpen(computer);
  return exit_code;
}

Texts BoxesOf(const SimulatedUpdate& update) {
  Texts texts;
  for (const Box& box : update.computer.desktop.boxes) texts.push_back(box.text);
  return texts;
}

Change WaitsFor(const simulated::Process& process) {
  return [=](SimulatedUpdate& update) {
    update.arguments.wait_pid = 7;
    update.arguments.wait_process_created_at = 99;
    update.arguments.has_wait_process_created_at = true;
    update.RefreshCommandLine();
    update.computer.processes.by_id[7] = process;
  };
}

Change Shell(std::intptr_t result) {
  return [=](SimulatedUpdate& update) { update.computer.desktop.shell_result = result; };
}

struct SuccessCase {
  const char* name;
  Change change;
  Path stays;  // A file of the workspace that cannot be removed.
};

TEST(MainSequenceTest, SuccessPublishesTheUpdateAndRestartsWithoutABox) {
  const SuccessCase cases[] = {
      {"no process", NoChange, u""},
      {"process ends in time", WaitsFor({.creation_time = 99, .exits_after_ms = 59999}), u""},
      {"another process has the id", WaitsFor({.creation_time = 98}), u""},
      {"launched.json stays", Inject(Call::CreateFile2, u"launched.json", 1, kAlways),
       u"launched.json"},
      {"archive.zip stays", Inject(Call::CreateFile2, u"archive.zip", 1, kAlways), u"archive.zip"}};
  ForEachCase(cases, [](const SuccessCase& each) {
    SimulatedUpdate update;
    each.change(update);
    EXPECT_EQ(RunProcess(update), 0);
    EXPECT_EQ(BoxesOf(update), Texts());
    EXPECT_FALSE(update.computer.disk.Exists(update.TargetPath(u"log.txt")));
    EXPECT_EQ(update.Target(), update.Installed());
    auto workspace = update.computer.disk.Tree(update.layout.workspace);
    EXPECT_EQ(workspace[u"completed.json"], simulated::kPendingContent);
    EXPECT_EQ(workspace.size(), each.stays.empty() ? 1u : 2u);
    EXPECT_TRUE(each.stays.empty() || workspace.contains(each.stays));
    EXPECT_EQ(update.computer.disk.ReadFile(update.layout.installed_manifest),
              simulated::kPendingContent);
    EXPECT_EQ(update.computer.desktop.starts.size(), 1u);
  });
}

struct FailingCase {
  const char* name;
  Change change;
  std::int32_t exit_code;
  std::u16string message;
  bool logged, launched;  // Whether a record is written, and whether "launched.json" stays.
};

std::vector<FailingCase> FailingCases() {
  using U = SimulatedUpdate;
  const std::u16string lock = u"Could not create the update transaction lock.";
  const std::u16string unproven =
      u"Could not safely verify that the running application exited. No files were changed.";
  const std::u16string failed = kRestored + std::u16string(u"\n\nDetails: ");
  const Change waits = WaitsFor({.creation_time = 99});
  const Path temporary = u"Tolvarine\\Tolvarine.exe.tolvarine-update-new";
  return {

      {"no arguments", [](U& u) { u.computer.desktop.command_line = u"updater.exe"; }, 2,
       u"Invalid updater arguments.", false, true},
      {"target is the source", [](U& u) { u.arguments.target = u.source, u.RefreshCommandLine(); },
       3,
       u"The update source, target, or state path failed safety validation. The release source and "
       u"installation target are the same directory.",
       false, true},

      {"process runs on", waits, 4,
       u"The running application did not exit in time. No files were changed.", true, true},
      {"process cannot be opened", WaitsFor({.open_error = 5}), 4, unproven, true, true},

      {"no plan", Write(u"S\\extra.txt"), 5,
       failed + u"Release source tree does not exactly match authenticated inventory", true, true},
      {"rolled back", Inject(Call::MoveFileExW, temporary), 5, failed + u"Access is denied.", true,
       false},
      {"rollback fails", Inject(Call::MoveFileExW, temporary, 1, 2), 5,
       kIncomplete + std::u16string(u"\n\nDetails: Access is denied.; rollback incomplete: Access "
                                    u"is denied."),
       true, false},
      {"corrupt journal", Write(u"X\\stray"), 5,
       u"The update transaction state is corrupt. No cleanup was attempted; the protected update "
       u"workspace was preserved.\n\nDetails: Transaction artifacts exist, but both journal slots "
       u"are missing or corrupt",
       true, false},
      {"restart", Shell(32), 6, kNotRestarted, true, false},
  };
}

TEST(MainSequenceTest, FailuresAreRecordedShownAndReturned) {
  ForEachCase(FailingCases(), [](const FailingCase& each) {
    SimulatedUpdate update;
    each.change(update);
    const auto before = update.computer.disk.Tree(u"C:\\State");
    EXPECT_EQ(RunProcess(update), each.exit_code);
    EXPECT_EQ(BoxesOf(update), Texts{each.message});
    EXPECT_EQ(std::ranges::count(update.Log(), '\n'), each.logged);
    EXPECT_EQ(update.computer.disk.Exists(update.layout.launched_marker), each.launched);
    EXPECT_EQ(update.computer.desktop.starts.size(), each.exit_code == 6 ? 1u : 0u);
    EXPECT_EQ(update.computer.disk.Tree(u"C:\\State") == before, each.exit_code < 5);
    EXPECT_TRUE(each.exit_code > 4 || update.Target() == update.plan.baseline);
  });
}

TEST(MainSequenceTest, ApplicationHasOneMinuteToExit) {
  SimulatedUpdate update;
  WaitsFor({.creation_time = 99, .exits_after_ms = 60001})(update);
  EXPECT_EQ(RunProcess(update), 4);
  EXPECT_EQ(update.computer.clock.elapsed_ms, 60000u);
}

TEST(MainSequenceTest, SecondUpdaterEndsWithoutChangingAnything) {
  SimulatedUpdate update;
  update.computer.processes.mutex_holders[InstallationMutexName(simulated::kInstallKey)] = {};
  const auto before = update.computer.disk.Tree(u"C:\\");
  EXPECT_EQ(RunProcess(update), 0);
  EXPECT_EQ(update.computer.clock.elapsed_ms, 1000u);
  EXPECT_EQ(update.computer.desktop.boxes.size() + update.computer.desktop.starts.size(), 0u);
  EXPECT_EQ(update.computer.disk.Tree(u"C:\\"), before);
}

struct DeferralCase {
  const char* name;
  Change change;
  bool temporary_stays, manifest_written;
};

std::vector<DeferralCase> DeferralCases() {
  using U = SimulatedUpdate;
  const Change short_copy = [](U& u) {
    u.computer.calls.Inject(
        {.call = Call::CopyFileW, .path_suffix = u"pending.json", .partial = 4});
  };
  const Change finalized_before = [](U& u) {
    u.computer.disk.Rename(u.layout.pending_marker, u.layout.completed_marker);
  };
  const Path temporary = u"installed-manifest.json.tmp";
  return {

      {"flush", Inject(Call::FlushFileBuffers, temporary), false, false},
      {"rename of the manifest", Inject(Call::MoveFileExW, temporary), false, false},
      {"finalized before", Both(LeftIn(TransactionPhase::Committed), finalized_before), false,
       false},
      {"rename of the marker", Inject(Call::MoveFileExW, u"pending.json"), false, true}};
}

TEST(MainSequenceTest, UpdateThatCannotBePublishedIsLeftToTheApplication) {
  ForEachCase(DeferralCases(), [](const DeferralCase& each) {
    for (const bool restarts : {true, false}) {
      SimulatedUpdate update;
      Both(each.change, restarts ? NoChange : Shell(31))(update);
      const bool pending = update.computer.disk.Exists(update.layout.pending_marker);
      EXPECT_EQ(RunProcess(update), restarts ? 7 : 6);
      EXPECT_EQ(BoxesOf(update), restarts ? Texts{kDeferred} : (Texts{kDeferred, kNotRestarted}));
      EXPECT_EQ(update.computer.desktop.starts.size(), 1u);
      const Path& manifest = update.layout.installed_manifest;
      EXPECT_EQ(update.computer.disk.ReadFile(manifest),
                each.manifest_written ? simulated::kPendingContent : simulated::kPreviousManifest);
      EXPECT_EQ(update.computer.disk.Exists(manifest + u".tmp"), each.temporary_stays);
      EXPECT_EQ(update.computer.disk.Exists(update.layout.pending_marker), pending);
      EXPECT_EQ(SavedRecord(update).phase, TransactionPhase::Committed);
      EXPECT_TRUE(update.computer.disk.Exists(update.layout.archive));
    }
  });
}

TEST(MainSequenceTest, RestartUsesItsPathAsGiven) {
  const std::pair<const char16_t*, const char16_t*> cases[] = {
      {u"bin/../run.exe", u"C:\\Program Files\\Tolvarine\\bin/../run.exe"},
      {u"\\Windows\\run.exe", u"C:\\Windows\\run.exe"},
      {u"D:\\Other\\run.exe", u"D:\\Other\\run.exe"}};
  for (const auto& [restart, file] : cases) {
    SimulatedUpdate update;
    update.arguments.restart = restart;
    update.arguments.target = u"c:/program files/TOLVARINE";
    update.RefreshCommandLine();
    Shell(33)(update);
    EXPECT_EQ(RunProcess(update), 0);
    const simulated::ShellStart& start = update.computer.desktop.starts.back();
    EXPECT_EQ(start.verb, u"open");
    EXPECT_EQ(start.file, file);
    EXPECT_EQ(start.directory, u"C:\\Program Files\\Tolvarine");
    EXPECT_EQ(start.show, 1);
  }
}

}  // namespace
}  // namespace tolvarine::updater
