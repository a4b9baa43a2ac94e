#include <gtest/gtest.h>

#include "driver/installation_lock.h"
#include "end_to_end/real_update.h"
#include "platform/windows/native.h"

namespace tolvarine::updater::end_to_end {
namespace {

// True once the updater is past validation.
bool LockExists(const RealUpdate& update) {
  const std::u16string name = InstallationMutexName(update.arguments.install_key);
  const HANDLE mutex = OpenMutexW(SYNCHRONIZE, FALSE, platform::Wide(name.c_str()));
  if (mutex != nullptr) CloseHandle(mutex);
  return mutex != nullptr;
}

TEST(Wait, NothingIsTouchedBeforeTheApplicationHasEnded) {
  RealUpdate update;
  RunningApplication application(update.application);
  update.WaitFor(application.process());
  const auto updater = update.Start();
  ASSERT_TRUE(Eventually([&] { return LockExists(update); }));
  // An updater that does not wait would end within this second.
  EXPECT_FALSE(Eventually([&] { return !updater->Running(); }, 1));
  EXPECT_EQ(update.ChangesSince(), Changes());
  application.End();
  EXPECT_EQ(updater->Finish(), Exit(0));
  update.ExpectInstalled();
}

TEST(Wait, AnApplicationThatCannotBeOpenedStopsTheUpdate) {
  SECURITY_DESCRIPTOR nobody = {};
  ACL no_rights = {};
  InitializeSecurityDescriptor(&nobody, SECURITY_DESCRIPTOR_REVISION);
  InitializeAcl(&no_rights, sizeof(no_rights), ACL_REVISION);
  SetSecurityDescriptorDacl(&nobody, TRUE, &no_rights, FALSE);
  SECURITY_ATTRIBUTES security = {sizeof(security), &nobody, FALSE};

  RealUpdate update;
  RunningApplication application(update.application, &security);
  update.WaitFor(application.process());
  const std::string message =
      "Could not safely verify that the running application exited. No files were changed.";
  EXPECT_EQ(update.Run(), ErrorBox(message) + Exit(4));
  EXPECT_EQ(update.ChangesSince(), Changes({"+ target/log.txt"}));
  EXPECT_EQ(update.Log(), LogRecord("ERROR", message));
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
