// Who has a file open. Wine's restart manager (8.0) begins sessions and lists nobody.

#include "system/restart_manager.h"

#include <array>

#include "contract/fixture.h"
#include "system/processes.h"

namespace tolvarine::updater::contract {
namespace {

class RestartManagerTest : public ContractTest {
 protected:
  RestartManagerTest() { EXPECT_EQ(0u, RmStartSession(&session_)); }
  ~RestartManagerTest() override { EXPECT_EQ(0u, RmEndSession(session_)); }

  void Register(const Path& file) {
    const std::array files{file.c_str()};
    EXPECT_EQ(0u, RmRegisterResources(session_, files.data(), 1));
  }

  std::uint32_t session_ = 0;
};

TEST_F(RestartManagerTest, AProgramIsListedWhileItHasAFileOpen) {
  Put(At(u"file"), "x");
  Register(At(u"file"));
  Register(At(u"none"));
  std::array<RmProcessInfo, 4> processes;
  std::uint32_t needed = 0;
  std::uint32_t count = 4;
  EXPECT_EQ(0u, RmGetList(session_, &needed, &count, processes.data()));
  EXPECT_EQ(0u, needed + count);

  const File held(At(u"file"), kGenericRead);
  count = 0;
  EXPECT_BUT_ON_WINE(kWine8And10, RmGetList(session_, &needed, &count, nullptr), kErrorMoreData,
                     0u);
  EXPECT_BUT_ON_WINE(kWine8And10, needed, 1u, 0u);
  count = 4;
  EXPECT_EQ(0u, RmGetList(session_, &needed, &count, processes.data()));
  EXPECT_BUT_ON_WINE(kWine8And10, count, 1u, 0u);
  EXPECT_BUT_ON_WINE(kWine8And10, processes[0].process_id, GetCurrentProcessId(), 0u);
  EXPECT_BUT_ON_WINE(kWine8And10, processes[0].application_name.empty(), false, true);
}

}  // namespace
}  // namespace tolvarine::updater::contract
