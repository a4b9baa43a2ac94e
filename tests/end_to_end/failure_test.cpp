#include <gtest/gtest.h>

#include "driver/failure_message.h"
#include "end_to_end/real_update.h"
#include "text/system_error.h"

namespace tolvarine::updater::end_to_end {
namespace {

using inspection::Version;

TEST(Failure, AFileHeldByAnotherProgramStopsTheRollbackUntilItIsReleased) {
  const std::string restored = "The update failed. The original installation was restored.";
  const std::string denied = SystemMessage(ERROR_ACCESS_DENIED);
  const std::string incomplete =
      "The update failed and rollback is incomplete. Retry the update before using the "
      "application.\n\nDetails: " +
      denied + "; rollback incomplete: " + denied;
  RealUpdate update;
  FileHandle held = OpenWithoutDeleteSharing(update.target / "bin/core.dll");

  EXPECT_EQ(update.Run(), ErrorBox(incomplete) + Exit(5));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::Rollback);

  held.Reset();
  EXPECT_EQ(update.Run(), ErrorBox(restored) + Exit(5));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::RolledBack);
  EXPECT_EQ(update.Log(), LogRecord("ERROR", incomplete) + LogRecord("ERROR", restored));
  update.ExpectTarget({Version::Old});

  EXPECT_EQ(update.Run(), Exit(0));
  update.ExpectInstalled();
}

TEST(Failure, ADeferredCleanupAndAFailedRestartShowABoxEach) {
  const std::string deferred =
      "The files were installed, but update cleanup could not be completed. The application will "
      "recognize the completed transaction on startup and clean it up later.";
  const std::string not_restarted =
      "The update was installed, but the application could not be restarted.";
  RealUpdate update;
  std::filesystem::remove(update.layout.pending_marker);
  update.arguments.restart = u"Missing.exe";
  EXPECT_EQ(update.Run(), WarningBox(deferred) + ErrorBox(not_restarted) + Exit(6));
  EXPECT_EQ(update.Log(), LogRecord("WARNING", deferred) + LogRecord("ERROR", not_restarted));
  EXPECT_EQ(update.SavedPhase(), TransactionPhase::Committed);
  update.ExpectTarget({Version::New});
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
