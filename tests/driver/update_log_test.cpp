#include "driver/update_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <new>

#include "support/update_changes.h"

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
  struct ZoneCase {
    platform::TimeZoneInformation zone;
    std::uint32_t id;
    const char* offset;
  };
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  const ZoneCase cases[] = {{{-60, 5, -60}, 1, "+00:55"},
                            {{300, 0, -60}, 2, "-04:00"},
                            {{-330, 0, 0}, 1, "+05:30"},
                            {{0, 0, 0}, 1, "+00:00"},
                            {{-60, 7, 9}, 0, "+01:00"},
                            {{570, 0, 0}, 0, "-09:30"},
                            {{kLeast, kLeast, 0}, 1, "+71582788:16"},
                            {{~kLeast, 0, 1}, 2, "-35791394:08"}};
  std::string expected;
  for (const auto& [zone, id, offset] : cases) {
    computer.clock.zone = zone;
    computer.clock.zone_id = id;
    WriteUpdateLog(kLogError, u"One\r\ntwo \\n \u00E9\U0001F600\xD800.");
    expected += std::string("[2026-03-01 14:05:09.042 ") + offset +
                "] [ERROR] [Updater] One\\r\\ntwo \\n \xC3\xA9\xF0\x9F\x98\x80\xEF\xBF\xBD.\r\n";
  }
  computer.clock.zone = {0, 0, 0};
  computer.clock.local_time = {987, 12, 31, 0, 0, 0, 7};
  computer.disk.Hold(kLog, platform::kGenericWrite, platform::kFileShareAll);
  computer.calls.keep_trace = true;
  WriteUpdateLog(kLogWarning, u"");
  expected += "[0987-12-31 00:00:00.007 +00:00] [WARNING] [Updater] \r\n";
  EXPECT_EQ(computer.disk.ReadFile(kLog), expected);
  EXPECT_EQ(std::ranges::count(computer.calls.trace, Call::WriteFile, &CallRecord::call), 1);
}

TEST_F(UpdateLogTest, RecordThatCannotBeWrittenIsDropped) {
  struct ObstacleCase {
    const char* name;
    void (*change)(Computer&);
  };
  const ObstacleCase cases[] = {
      {"no path", [](Computer&) { UpdateLogPath().clear(); }},
      {"no directory", [](Computer&) { UpdateLogPath() = u"C:\\missing\\log.txt"; }},
      {"open elsewhere",
       [](Computer& c) { c.disk.Hold(kLog, platform::kGenericRead, platform::kFileShareNone); }},
      {"conversion, size",
       [](Computer& c) { c.calls.Inject({.call = Call::WideCharToMultiByte}); }},
      {"conversion, text",
       [](Computer& c) { c.calls.Inject({.call = Call::WideCharToMultiByte, .first = 2}); }},
      {"write", [](Computer& c) { c.calls.Inject({.call = Call::WriteFile}); }},
      {"no memory", [](Computer& c) {
         c.calls.before_call = [](const CallRecord&) { throw std::bad_alloc(); };
       }}};
  ForEachCase(cases, [](const ObstacleCase& each) {
    Computer other;
    other.MakeCurrent();
    other.disk.WriteFile(kLog, "earlier\n");
    UpdateLogPath() = kLog;
    each.change(other);
    WriteUpdateLog(kLogError, u"text");
    EXPECT_EQ(other.disk.ReadFile(kLog), "earlier\n");
    EXPECT_EQ(other.disk.Tree(u"C:\\").size(), 2u);
  });
}

}  // namespace
}  // namespace tolvarine::updater
