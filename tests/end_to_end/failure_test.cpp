#include <gtest/gtest.h>

#include "driver/failure_message.h"
#include "end_to_end/real_update.h"
#include "files/failure.h"
#include "files/unique_handle.h"
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

TEST(Failure, BytesOfAPathBeyondAsciiAreShownAsTheyAreAndNotDecoded) {
  UpdateContents contents = UsualContents();
  contents.release["caf\u00e9.txt"] = "one";
  RealUpdate update(contents);
  const fs::path path = update.release / u"caf\u00e9.txt";
  WriteBytes(path, "two");
  const std::string message =
      WithDetails(kRestored, "Release source does not match authenticated inventory: " +
                                 Utf8(WidenBytes(NarrowPathText(path.u16string()))));
  EXPECT_EQ(update.Run(), Failed(message));
  EXPECT_EQ(update.Log(), RecordOf(message));
}

TEST(Failure, AJournalThatCannotBeReadIsPreserved) {
  for (const std::string& slot :
       {std::string("TOLVARINE-UPDATE-TRANSACTION-2\n"), std::string(50'000'000, 'n')}) {
    RealUpdate update;
    fs::create_directory(update.layout.transaction);
    for (const char* name : {"journal.0", "journal.1"}) {
      WriteBytes(update.layout.transaction / fs::path(name), slot);
    }
    static_cast<void>(update.ChangesSince());
    EXPECT_EQ(update.Run(),
              Failed(WithDetails(kCorrupt,
                                 "Transaction artifacts exist, but both journal slots are "
                                 "missing or corrupt")));
    EXPECT_EQ(update.ChangesSince(), Changes({"+ target/log.txt", "- workspace/launched.json"}));
  }
}

TEST(Failure, MarkersAndTheRestartAreToldWhereTheyFail) {
  const std::pair<bool, bool> rows[] = {{false, true}, {true, false}, {false, false}};
  for (const auto& [published, restarted] : rows) {
    SCOPED_TRACE(std::to_string(published) + ", " + std::to_string(restarted));
    RealUpdate update;
    if (!published) fs::remove(update.layout.pending_marker);
    if (!restarted) update.arguments.restart = u"Missing.exe";
    EXPECT_EQ(update.Run(), (published ? "" : WarningBox(kDeferred)) +
                                (restarted ? Exit(7) : ErrorBox(kNotRestarted) + Exit(6)));
    EXPECT_EQ(update.Log(), (published ? "" : LogRecord("WARNING", kDeferred)) +
                                (restarted ? "" : RecordOf(kNotRestarted)));
    EXPECT_EQ(update.SavedPhase(),
              published ? TransactionPhase::None : TransactionPhase::Committed);
    EXPECT_EQ(fs::exists(update.layout.archive), !published);
    if (restarted) update.ExpectInstalled();
    EXPECT_EQ(update.Target(), update.Installed());
  }
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
