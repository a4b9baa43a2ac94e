#include "driver/main_sequence.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

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

// How the log record of a box's text ends.
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

// Runs one process, and checks what holds of every ending: a record is on the disk before its box
// appears, the mutex outlasts boxes and restart, and nothing is left open.
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

Act WaitsFor(const simulated::Process& process) {
  return [=](SimulatedUpdate& update) {
    update.arguments.wait_pid = 7;
    update.arguments.wait_process_created_at = 99;
    update.arguments.has_wait_process_created_at = true;
    update.RefreshCommandLine();
    update.computer.processes.by_id[7] = process;
  };
}

Act Shell(std::intptr_t result) {
  return [=](SimulatedUpdate& update) { update.computer.desktop.shell_result = result; };
}

TEST(MainSequenceTest, SuccessPublishesTheUpdateAndRestartsWithoutAWord) {
  const Act acts[] = {Nothing, WaitsFor({.creation_time = 99, .exits_after_ms = 59999}),
                      WaitsFor({.creation_time = 98}), WaitsFor({.gone = true}),
                      Inject(Call::CreateFile2, u"launched.json")};
  ForEachRow(acts, [](const Act& act) {
    SimulatedUpdate update;
    act(update);
    EXPECT_EQ(RunProcess(update), 0);
    EXPECT_EQ(BoxesOf(update), Texts());
    EXPECT_FALSE(update.computer.disk.Exists(update.TargetPath(u"log.txt")));
    EXPECT_EQ(update.Target(), update.Installed());
    auto workspace = update.computer.disk.Tree(update.layout.workspace);
    workspace.erase(u"launched.json");  // Where it cannot be removed, it stays.
    EXPECT_EQ(workspace.size(), 1u);
    EXPECT_EQ(workspace[u"completed.json"], simulated::kPendingContent);
    EXPECT_EQ(update.computer.disk.ReadFile(update.layout.installed_manifest),
              simulated::kPendingContent);
    EXPECT_EQ(update.computer.desktop.starts.size(), 1u);
  });
}

struct Ending {
  Act act;
  std::int32_t exit_code;
  std::u16string message;
  bool logged, launched;  // Whether there is a record, and still a "launched.json".
};

std::vector<Ending> Endings() {
  using U = SimulatedUpdate;
  const std::u16string arguments = u"Invalid updater arguments.";
  const std::u16string lock = u"Could not create the update transaction lock.";
  const std::u16string running =
      u"The running application did not exit in time. No files were changed.";
  const std::u16string unproven =
      u"Could not safely verify that the running application exited. No files were changed.";
  const std::u16string failed = kRestored + std::u16string(u"\n\nDetails: ");
  const Act waits = WaitsFor({.creation_time = 99});
  const Path temporary = u"Tolvarine\\Tolvarine.exe.tolvarine-update-new";
  return {
      {Inject(Call::CommandLineToArgvW, u""), 2, arguments, false, true},
      {[](U& u) { u.computer.desktop.command_line = u"updater.exe"; }, 2, arguments, false, true},
      {[](U& u) {
         u.computer.desktop.command_line += u" --managed-deletions " + Path(32000, u'6');
       },
       2, arguments, false, true},
      {[](U& u) { u.arguments.target = u.source, u.RefreshCommandLine(); }, 3,
       u"The update source, target, or state path failed safety validation. The release source and "
       u"installation target are the same directory.",
       false, true},
      {Inject(Call::CreateMutexW, u""), 3, lock, true, true},
      {Inject(Call::WaitForSingleObject, u""), 3, lock, true, true},
      {waits, 4, running, true, true},
      {WaitsFor({.open_error = 5}), 4, unproven, true, true},
      {Both(waits, Inject(Call::GetProcessTimes, u"")), 4, unproven, true, true},
      {Both(waits, Inject(Call::WaitForSingleObject, u"", 2)), 4, unproven, true, true},
      {Write(u"S\\extra.txt"), 5,
       failed + u"Release source tree does not exactly match authenticated inventory", true, true},
      {Inject(Call::CopyFileW, u"Tolvarine.exe"), 5,
       failed + u"Could not copy backup or restore temporary: Access is denied.", true, false},
      {Inject(Call::MoveFileExW, temporary), 5, failed + u"Access is denied.", true, false},
      {Inject(Call::MoveFileExW, temporary, 1, 2), 5,
       kIncomplete + std::u16string(u"\n\nDetails: Access is denied.; rollback incomplete: Access "
                                    u"is denied."),
       true, false},
      {Write(u"X\\stray"), 5,
       u"The update transaction state is corrupt. No cleanup was attempted; the protected update "
       u"workspace was preserved.\n\nDetails: Transaction artifacts exist, but both journal slots "
       u"are missing or corrupt",
       true, false},
      {Shell(32), 6, kNotRestarted, true, false},
  };
}

TEST(MainSequenceTest, FailuresAreRecordedShownAndReturned) {
  ForEachRow(Endings(), [](const Ending& row) {
    SimulatedUpdate update;
    row.act(update);
    const auto before = update.computer.disk.Tree(u"C:\\State");
    EXPECT_EQ(RunProcess(update), row.exit_code);
    EXPECT_EQ(BoxesOf(update), Texts{row.message});
    EXPECT_EQ(std::ranges::count(update.Log(), '\n'), row.logged);
    EXPECT_EQ(update.computer.disk.Exists(update.layout.launched_marker), row.launched);
    EXPECT_EQ(update.computer.desktop.starts.size(), row.exit_code == 6 ? 1u : 0u);
    EXPECT_EQ(update.computer.disk.Tree(u"C:\\State") == before, row.exit_code < 5);
    EXPECT_TRUE(row.exit_code > 4 || update.Target() == update.plan.baseline);
  });
}

TEST(MainSequenceTest, SecondUpdaterStepsAsideWithoutATrace) {
  SimulatedUpdate update;
  update.computer.processes.mutex_holders[InstallationMutexName(simulated::kInstallKey)] = {};
  const auto before = update.computer.disk.Tree(u"C:\\");
  EXPECT_EQ(RunProcess(update), 0);
  EXPECT_EQ(update.computer.clock.elapsed_ms, 1000u);
  EXPECT_EQ(update.computer.desktop.boxes.size() + update.computer.desktop.starts.size(), 0u);
  EXPECT_EQ(update.computer.disk.Tree(u"C:\\"), before);
}

struct Deferral {
  Act act;
  bool temporary_stays, manifest_written;
};

TEST(MainSequenceTest, UpdateThatCannotBePublishedIsLeftToTheApplication) {
  using U = SimulatedUpdate;
  const Act cut_short = [](U& u) {
    u.computer.calls.Inject(
        {.call = Call::CopyFileW, .path_suffix = u"pending.json", .partial = 4});
  };
  const Act finalized_before = [](U& u) {
    u.computer.disk.Rename(u.layout.pending_marker, u.layout.completed_marker);
  };
  const Path temporary = u"installed-manifest.json.tmp";
  const Deferral rows[] = {
      {Inject(Call::CopyFileW, u"pending.json"), false, false},
      {cut_short, true, false},
      {Inject(Call::CreateFileW, temporary), false, false},
      {Inject(Call::FlushFileBuffers, temporary), false, false},
      {Inject(Call::MoveFileExW, temporary), false, false},
      {Both(Inject(Call::MoveFileExW, temporary), Inject(Call::DeleteFileW, temporary, 2)), true,
       false},
      {Both(LeftIn(TransactionPhase::Committed), finalized_before), false, false},
      {Inject(Call::MoveFileExW, u"pending.json"), false, true}};
  for (const bool restarts : {true, false}) {
    ForEachRow(rows, [&](const Deferral& row) {
      SimulatedUpdate update;
      Both(row.act, restarts ? Nothing : Shell(31))(update);
      const bool pending = update.computer.disk.Exists(update.layout.pending_marker);
      EXPECT_EQ(RunProcess(update), restarts ? 7 : 6);
      EXPECT_EQ(BoxesOf(update), restarts ? Texts{kDeferred} : (Texts{kDeferred, kNotRestarted}));
      EXPECT_EQ(update.computer.desktop.starts.size(), 1u);
      EXPECT_EQ(update.computer.disk.ReadFile(update.layout.installed_manifest),
                row.manifest_written ? simulated::kPendingContent : simulated::kPreviousManifest);
      EXPECT_EQ(update.computer.disk.Exists(update.layout.state + u"\\" + temporary),
                row.temporary_stays);
      EXPECT_EQ(update.computer.disk.Exists(update.layout.pending_marker), pending);
      EXPECT_EQ(SavedRecord(update).phase, TransactionPhase::Committed);
      EXPECT_TRUE(update.computer.disk.Exists(update.layout.archive));
    });
  }
}

TEST(MainSequenceTest, CopyOfAMarkerIsDurable) {
  SimulatedUpdate update;
  const Path copy = update.layout.workspace + u"\\copy.json";
  Write(copy + u".tmp", "stale")(update);
  EXPECT_TRUE(CopyMarkerDurably(update.layout.pending_marker, copy));
  EXPECT_TRUE(update.computer.disks.volume(u'C').unforced().empty());
  EXPECT_TRUE(update.computer.disks.volume(u'C').UnflushedFiles().empty());
  EXPECT_EQ(update.computer.disk.ReadFile(copy), simulated::kPendingContent);
  EXPECT_FALSE(update.computer.disk.Exists(copy + u".tmp"));
}

TEST(MainSequenceTest, RestartTakesItsPathAsGiven) {
  const std::pair<const char16_t*, const char16_t*> rows[] = {
      {u"bin/../run.exe", u"C:\\Program Files\\Tolvarine\\bin/../run.exe"},
      {u"\\Windows\\run.exe", u"C:\\Windows\\run.exe"},
      {u"D:\\Other\\run.exe", u"D:\\Other\\run.exe"},
      {u"\\\\server\\share\\run.exe", u"\\\\server\\share\\run.exe"}};
  ForEachRow(rows, [](const auto& row) {
    SimulatedUpdate update;
    update.arguments.restart = row.first;
    update.arguments.target = u"c:/program files/TOLVARINE";
    update.RefreshCommandLine();
    for (const std::intptr_t result : {32, 0, -1}) {
      Shell(result)(update);
      EXPECT_EQ(RunProcess(update), 6) << result;
      update.computer.disk.WriteFile(update.layout.pending_marker, "");
    }
    Shell(33)(update);
    EXPECT_EQ(RunProcess(update), 0);
    const simulated::ShellStart& start = update.computer.desktop.starts.back();
    EXPECT_EQ(start.verb, u"open");
    EXPECT_EQ(start.file, row.second);
    EXPECT_EQ(start.directory, u"C:\\Program Files\\Tolvarine");
    EXPECT_EQ(start.show, 1);
  });
}

// Windows-1252 has one byte for the letter, which is widened and not decoded.
TEST(MainSequenceTest, DetailsAreWidenedBySignExtension) {
  EXPECT_EQ(WidenBytes("a\x7F\x80\xE9\xFF"), u"a\x7F\xFF80\xFFE9\xFFFF");
  UpdatePlan plan = TypicalPlan();
  plan.release[u"caf\u00E9.txt"] = "content";
  SimulatedUpdate update(plan);
  Write(u"S\\caf\u00E9.txt", "CONTENT")(update);
  EXPECT_EQ(RunProcess(update), 5);
  EXPECT_TRUE(BoxesOf(update).at(0).ends_with(u"\\caf\uFFE9.txt"));
}

TEST(MainSequenceTest, ExceptionsOutsideTheTransactionLeaveTheProcess) {
  const std::pair<Call, const char16_t*> calls[] = {
      {Call::CommandLineToArgvW, u""},    {Call::CreateMutexW, u""},
      {Call::WaitForSingleObject, u""},   {Call::CreateFile2, u"launched.json"},
      {Call::CopyFileW, u"pending.json"}, {Call::CreateFile2, u"archive.zip"},
      {Call::ShellExecuteW, u""}};
  const Act no_memory = [](SimulatedUpdate&) { throw std::bad_alloc(); };
  ForEachRow(calls, [&](const auto& row) {
    SimulatedUpdate update;
    Before(row.first, row.second, no_memory)(update);
    EXPECT_THROW(update.Run(), std::bad_alloc);
    ExpectNothingLeftOpen(update.computer);
  });
}

}  // namespace
}  // namespace tolvarine::updater
