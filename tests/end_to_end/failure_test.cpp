#include <gtest/gtest.h>

#include "end_to_end/real_update.h"
#include "files/unique_handle.h"
#include "journal/journal_text.h"
#include "text/system_error.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;

constexpr char kRestored[] = "The update failed. The original installation was restored.";
constexpr char kIncomplete[] =
    "The update failed and rollback is incomplete. Retry the update before using the application.";
constexpr char kCorrupt[] =
    "The update transaction state is corrupt. No cleanup was attempted; the protected update "
    "workspace was preserved.";
constexpr char kDeferred[] =
    "The files were installed, but update cleanup could not be completed. The application will "
    "recognize the completed transaction on startup and clean it up later.";
constexpr char kNotRestarted[] =
    "The update was installed, but the application could not be restarted.";

// Held so that others may read and write it, but neither replace nor remove it.
FileHandle Hold(const fs::path& path, std::uint32_t access = platform::kGenericRead) {
  return FileHandle(platform::CreateFileW(path.u16string().c_str(), access,
                                          platform::kFileShareRead | platform::kFileShareWrite,
                                          platform::kOpenExisting, platform::kFileAttributeNormal));
}

std::string WithDetails(const std::string& message, const std::string& details) {
  return message + "\n\nDetails: " + details;
}

// What a failed update ends with: the box and the exit code.
std::string Failed(const std::string& message) { return ErrorBox(message) + Exit(5); }

std::string RecordOf(const std::string& message) { return LogRecord("ERROR", message); }

TEST(Failure, AFileHeldByAnotherStopsTheRollbackUntilItIsLetGo) {
  RealUpdate update;
  FileHandle held = Hold(update.target / "bin/core.dll");
  const std::string denied = SystemMessage(ERROR_ACCESS_DENIED);
  const std::string incomplete =
      WithDetails(kIncomplete, denied + "; rollback incomplete: " + denied);

  EXPECT_EQ(update.Run(), Failed(incomplete));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::Rollback);

  held.Reset();
  EXPECT_EQ(update.Run(), Failed(kRestored));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::RolledBack);
  EXPECT_EQ(update.Log(), RecordOf(incomplete) + RecordOf(kRestored));
  EXPECT_EQ(update.Target(), update.Baseline());

  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
}

TEST(Failure, AFailureOnTheWayRestoresTheBaseline) {
  RealUpdate update;
  // What is in the way of a temporary is the user's, and a new file needs no restoring.
  const fs::path obstacle = update.target / "empty.dat.tolvarine-update-new" / "mine.txt";
  fs::create_directory(obstacle.parent_path());
  WriteBytes(obstacle, "mine");
  const std::string message = WithDetails(
      kRestored, "Could not create target temporary file: " + SystemMessage(ERROR_FILE_EXISTS));
  EXPECT_EQ(update.Run(), Failed(message));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::RolledBack);
  EXPECT_EQ(update.Log(), RecordOf(message));
  EXPECT_EQ(ReadBytes(obstacle), "mine");
  EXPECT_FALSE(fs::exists(update.layout.launched_marker));
  fs::remove(obstacle);
  fs::remove(obstacle.parent_path());
  EXPECT_EQ(update.Target(), update.Baseline());
}

TEST(Failure, AReleaseThatIsNotTheAuthenticatedOneIsNotInstalled) {
  const struct {
    std::string details;
    std::function<FileHandle(RealUpdate&)> arrange;
  } rows[] = {
      {"Could not lock release source: " + SystemMessage(ERROR_SHARING_VIOLATION),
       [](RealUpdate& u) { return Hold(u.release / "big.bin", platform::kGenericWrite); }},
      {"Release source tree does not exactly match authenticated inventory",
       [](RealUpdate& u) {
         WriteBytes(u.release / "stray.txt", "");
         return FileHandle();
       }},
      {"Release source does not match authenticated inventory: <path>",
       [](RealUpdate& u) {
         WriteBytes(u.release / "bin/core.dll", "core 3");
         return FileHandle();
       }},
  };
  for (const auto& [details, arrange] : rows) {
    SCOPED_TRACE(details);
    RealUpdate update;
    const FileHandle held = arrange(update);
    static_cast<void>(update.ChangesSince());
    std::string expected = details;
    if (const std::size_t at = expected.find("<path>"); at != std::string::npos) {
      expected.replace(at, 6, Utf8((update.release / "bin" / "core.dll").u16string()));
    }
    EXPECT_EQ(update.Run(), Failed(WithDetails(kRestored, expected)));
    EXPECT_EQ(update.ChangesSince(), Changes({"+ target/log.txt", "+ workspace/transaction/"}));
  }
}

TEST(Failure, BytesOfAPathBeyondAsciiAreShownAsTheyAreAndNotDecoded) {
  UpdateContents contents = UsualContents();
  contents.release["caf\u00e9.txt"] = "one";
  RealUpdate update(contents);
  WriteBytes(update.release / u"caf\u00e9.txt", "two");
  char narrow[4] = {};
  BOOL inexact = FALSE;
  const int length = WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, L"\u00e9", 1, narrow, 4,
                                         nullptr, GetACP() == CP_UTF8 ? nullptr : &inexact);
  ASSERT_FALSE(inexact) << "the machine's code page has no such letter";
  std::u16string path = (update.release / "caf").u16string();
  for (int i = 0; i < length; ++i) {
    path.push_back(static_cast<char16_t>(0xFF00 | static_cast<unsigned char>(narrow[i])));
  }
  path += u".txt";
  const std::string message = WithDetails(
      kRestored, "Release source does not match authenticated inventory: " + Utf8(path));
  EXPECT_EQ(update.Run(), Failed(message));
  EXPECT_EQ(update.Log(), RecordOf(message));
}

TEST(Failure, AJournalThatCannotBeUsedIsPreserved) {
  const std::string unreadable = WithDetails(
      kCorrupt, "Transaction artifacts exist, but both journal slots are missing or corrupt");
  const struct {
    const char* what;
    std::function<std::string()> slot;
    std::string message;
  } rows[] = {
      {"both slots cut short", [] { return "TOLVARINE-UPDATE-TRANSACTION-2\ngeneration 7\n"; },
       unreadable},
      {"50 MB of noise",
       [] {
         std::string noise(50'000'000, '\0');
         std::uint32_t state = 1;
         for (char& byte : noise) byte = static_cast<char>((state = state * 1664525 + 1) >> 24);
         return noise;
       },
       unreadable},
      {"a sound journal of another update, as large as they come",
       [] {
         TransactionJournal journal;
         journal.generation = 7;
         journal.phase = TransactionPhase::Apply;
         journal.target = u"C:\\elsewhere";
         for (std::uint64_t i = 0; i < kJournalCountLimit; ++i) {
           const std::string name = "file " + std::to_string(i);
           journal.entries.push_back(
               {.path = {name.begin(), name.end()}, .sha256 = std::string(kNoSha256)});
         }
         return SerializeJournal(journal);
       },
       WithDetails(kRestored, "Authenticated source inventory does not match transaction journal")},
  };
  for (const auto& [what, slot, message] : rows) {
    SCOPED_TRACE(what);
    RealUpdate update;
    fs::create_directory(update.layout.transaction);
    for (const char* name : {"journal.0", "journal.1"}) {
      WriteBytes(update.layout.transaction / fs::path(name), slot());
    }
    static_cast<void>(update.ChangesSince());
    Changes changes = {"+ target/log.txt"};
    if (message == unreadable) changes.insert("- workspace/launched.json");
    EXPECT_EQ(update.Run(), Failed(message));
    EXPECT_EQ(update.ChangesSince(), changes);
  }
}

TEST(Failure, MarkersThatCannotBePublishedLeaveTheCleanupToTheApplication) {
  RealUpdate update;
  fs::remove(update.layout.pending_marker);
  EXPECT_EQ(update.Run(), WarningBox(kDeferred) + Exit(7));
  update.ExpectInstalled();
  EXPECT_EQ(update.Log(), LogRecord("WARNING", kDeferred));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::Committed);
  EXPECT_TRUE(fs::exists(update.layout.archive));
}

TEST(Failure, AnApplicationThatCannotBeRestartedIsTold) {
  for (const bool published : {true, false}) {
    SCOPED_TRACE(published);
    RealUpdate update;
    update.arguments.restart = u"Missing.exe";
    if (!published) fs::remove(update.layout.pending_marker);
    EXPECT_EQ(update.Run(),
              (published ? "" : WarningBox(kDeferred)) + ErrorBox(kNotRestarted) + Exit(6));
    EXPECT_EQ(update.Log(), (published ? "" : LogRecord("WARNING", kDeferred)) +
                                LogRecord("ERROR", kNotRestarted));
    EXPECT_EQ(update.Target(), update.Installed());
  }
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
