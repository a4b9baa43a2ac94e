#include "driver/update_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <new>

#include "support/update_scenes.h"

namespace tolvarine::updater {
namespace {

constexpr char16_t kLog[] = u"C:\\T\\log.txt";

class UpdateLogTest : public testing::Test {
 protected:
  UpdateLogTest() {
    computer.MakeCurrent();
    computer.disk.MakeDirectory(u"C:\\T");
    UpdateLogPath() = kLog;
  }
  ~UpdateLogTest() override { UpdateLogPath().clear(); }

  Computer computer;
};

TEST_F(UpdateLogTest, RecordsAreAppendedWithLocalTimeAndItsOffset) {
  struct Row {
    platform::TimeZoneInformation zone;
    std::uint32_t id;
    const char* offset;
  };
  const Row rows[] = {{{-60, 0, -60}, 1, "+01:00"}, {{-60, 5, -60}, 1, "+00:55"},
                      {{300, 0, -60}, 1, "-05:00"}, {{300, 0, -60}, 2, "-04:00"},
                      {{-330, 0, 0}, 1, "+05:30"},  {{0, 0, 0}, 1, "+00:00"},
                      {{-60, 7, 9}, 0, "+01:00"},   {{570, 0, 0}, 0, "-09:30"}};
  std::string expected;
  for (const auto& [zone, id, offset] : rows) {
    computer.clock.zone = zone;
    computer.clock.zone_id = id;
    WriteUpdateLog(kLogError, u"One\r\ntwo \\n \u00E9\U0001F600\xD800.");
    expected += std::string("[2026-03-01 14:05:09.042 ") + offset +
                "] [ERROR] [Updater] One\\r\\ntwo \\n \xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD.\r\n";
  }
  computer.clock.local_time = {987, 12, 31, 0, 0, 0, 7};
  computer.disk.Hold(kLog, platform::kGenericWrite,
                     platform::kFileShareAll);  // It shuts nobody out.
  computer.calls.keep_trace = true;
  WriteUpdateLog(kLogWarning, u"");
  expected += "[0987-12-31 00:00:00.007 -09:30] [WARNING] [Updater] \r\n";
  EXPECT_EQ(computer.disk.ReadFile(kLog), expected);
  const auto writes = [](const CallRecord& record) { return record.call == Call::WriteFile; };
  EXPECT_EQ(std::ranges::count_if(computer.calls.trace, writes), 1);
}

// The update goes on without the record in every case.
TEST_F(UpdateLogTest, RecordThatCannotBeWrittenIsDropped) {
  using W = Computer;
  void (*const obstacles[])(W&) = {
      [](W&) { UpdateLogPath().clear(); },
      [](W&) { UpdateLogPath() = u"C:\\missing\\log.txt"; },
      [](W& w) { w.disk.SetAttributes(kLog, platform::kFileAttributeReadonly); },
      [](W& w) { w.disk.Hold(kLog, platform::kGenericRead, platform::kFileShareNone); },
      [](W& w) { w.disks.volume(u'C').write_protected = true; },
      [](W& w) { w.calls.Inject({.call = Call::WideCharToMultiByte}); },
      [](W& w) { w.calls.Inject({.call = Call::WideCharToMultiByte, .first = 2}); },
      [](W& w) { w.calls.Inject({.call = Call::WriteFile}); },
      [](W& w) { w.calls.before_call = [](const CallRecord&) { throw std::bad_alloc(); }; }};
  ForEachRow(obstacles, [](const auto& obstacle) {
    Computer machine;
    machine.MakeCurrent();
    machine.disk.WriteFile(kLog, "earlier\n");
    UpdateLogPath() = kLog;
    obstacle(machine);
    WriteUpdateLog(kLogError, u"text");
    EXPECT_EQ(machine.disk.ReadFile(kLog), "earlier\n");
    EXPECT_EQ(machine.disk.Tree(u"C:\\").size(), 2u);
  });
}

}  // namespace
}  // namespace tolvarine::updater
