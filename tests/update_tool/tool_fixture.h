// The update tool on a simulated computer: command lines are carried out in C:\Work, where an
// installation "app" and a release "release-2" lie. Releases are signed with a key made for the
// run.

#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_installation/simulated_installation.h"
#include "simulated_windows/file_system.h"
#include "text/utf8.h"
#include "update_tool/commands.h"

namespace tolvarine::updater::update_tool {

inline constexpr char kStatus[] = "status --target app --state state --key public.pem";
inline constexpr char kPrepare[] =
    "prepare --target app --state state --key public.pem --release release.json "
    "--package release-2";

struct Ended {
  int code = 0;
  std::string output;
  std::string errors;
};

class ToolFixture : public testing::Test {
 protected:
  ToolFixture() {
    computer().disks.current_directory = u"C:\\Work";
    Write(u"app\\Tolvarine.exe", "executable 1");
    Write(u"app\\lib\\core.dll", "core 1");
    Write(u"app\\lib\\same.dll", "same");
    Write(u"release-2\\Tolvarine.exe", "executable 2");
    Write(u"release-2\\lib\\core.dll", "core 2");
    Write(u"release-2\\lib\\same.dll", "same");
    Write(u"public.pem", fixture.key.Pem());
    computer().disks.Settle();
  }
  ~ToolFixture() override { EXPECT_EQ(computer().files().open_handles(), 0u); }

  simulated::Computer& computer() { return fixture.computer; }
  static Path InWork(PathView relative) { return u"C:\\Work\\" + Path(relative); }
  void Write(PathView relative, std::string_view content) {
    computer().disk.WriteFile(InWork(relative), content);
  }
  [[nodiscard]] std::string Read(PathView relative) {
    return computer().disk.ReadFile(InWork(relative)).value_or("");
  }

  // The words of `line` are parted by single blanks.
  Ended Run(std::string_view line) {
    std::vector<std::u16string> words;
    for (std::size_t start = 0; start < line.size();) {
      const std::size_t end = std::min(line.find(' ', start), line.size());
      words.push_back(Utf16FromUtf8(line.substr(start, end - start)));
      start = end + 1;
    }
    return RunWords(words);
  }
  Ended RunWords(const std::vector<std::u16string>& words) {
    Ended ended;
    const std::vector<std::u16string_view> views(words.begin(), words.end());
    ended.code = RunCommand(ParseLine(views),
                            {.print = [&](std::string_view text) { ended.output += text; },
                             .print_error = [&](std::string_view text) { ended.errors += text; },
                             .progress = {},
                             .program_directory = u"C:\\Tools"});
    return ended;
  }

  // The codes of the reasons, each followed by a blank, warnings left out. The line is carried out
  // with --json.
  std::string ReasonsOf(const std::string& line) {
    const nlohmann::json answer = nlohmann::json::parse(Run(line + " --json").output);
    std::string codes;
    for (const nlohmann::json& reason : answer.at("reasons")) {
      if (!reason.at("warning")) codes += reason.at("code").get<std::string>() + " ";
    }
    return codes;
  }

  void Sign() { Write(u"signature.der", fixture.key.Sign(Read(u"to-sign.bin"))); }

  // Makes release.json, of release-2.
  void DescribeAndSign() {
    for (const std::string_view example : AllVerbs().front().examples) {
      ASSERT_EQ(Run(example).code, 0);
      Sign();
    }
    computer().disks.Settle();
  }

  simulated::SimulatedInstallation fixture;
};

}  // namespace tolvarine::updater::update_tool
