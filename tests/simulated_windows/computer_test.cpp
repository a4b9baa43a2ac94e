#include "simulated_windows/computer.h"

#include <gtest/gtest.h>

#include <exception>

#include "platform/files.h"
#include "support/text_printers.h"

namespace tolvarine::updater::simulated {
namespace {

class ComputerTest : public testing::Test {
 protected:
  ComputerTest() {
    computer.MakeCurrent();
    computer.disk.WriteFile(u"C:\\a", "content");
    computer.disks.Settle();
  }

  Computer computer;
};

bool Move(const char16_t* to, std::uint32_t flags) {
  return platform::MoveFileExW(u"C:\\a", to, flags);
}

TEST_F(ComputerTest, ARenameWithWriteThroughForcesItsVolumeIfTheMediumHonoursIt) {
  computer.disks.AddVolume(u'D');
  computer.disk.WriteFile(u"D:\\other", "");
  EXPECT_TRUE(Move(u"C:\\b", 0));
  EXPECT_EQ(computer.disks.volume(u'C').unforced().size(), 1u);
  EXPECT_TRUE(platform::MoveFileExW(u"C:\\b", u"C:\\a", platform::kMovefileWriteThrough));
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty());
  EXPECT_FALSE(computer.disks.volume(u'D').unforced().empty());
  computer.disks.write_through_holds = false;
  EXPECT_TRUE(Move(u"C:\\b", platform::kMovefileWriteThrough));
  EXPECT_EQ(computer.disks.volume(u'C').unforced().size(), 1u);
}

// Its destructor closes a handle and, while an exception propagates, deletes the file.
struct TidyUp {
  platform::Handle handle =
      platform::CreateFileW(u"C:\\a", platform::kGenericWrite, 0, platform::kOpenExisting, 0);
  ~TidyUp() {
    EXPECT_FALSE(platform::CloseHandle(handle));
    EXPECT_TRUE(std::uncaught_exceptions() == 0 || !platform::DeleteFileW(u"C:\\a"));
  }
};

TEST_F(ComputerTest, CallsAfterThePowerCutThrowOrChangeNothing) {
  computer.calls.before_call = [&](const CallRecord& call) {
    if (call.call == Call::MoveFileExW) computer.calls.CutPower();
  };
  EXPECT_THROW(
      {
        const TidyUp scope;
        Move(u"C:\\b", 0);
      },
      PowerCut);
  EXPECT_THROW(platform::DeleteFileW(u"C:\\a"), PowerCut);
  EXPECT_EQ(computer.disk.ReadFile(u"C:\\a"), "content");
  computer.calls.before_call = nullptr;
  computer.processes.mutex_holders[u"m"] = {};
  computer.Restart();
  EXPECT_TRUE(computer.processes.mutex_holders.empty());
  EXPECT_TRUE(Move(u"C:\\b", 0)) << "a handle outlived the power cut";
}

}  // namespace
}  // namespace tolvarine::updater::simulated
