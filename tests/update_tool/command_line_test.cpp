#include <set>

#include "driver/installation_lock.h"
#include "update_tool/tool_fixture.h"

namespace tolvarine::updater::update_tool {
namespace {

using Json = nlohmann::json;

class CommandLine : public ToolFixture {
 protected:
  // What an example needs that none before it has made.
  void PrepareFor(Verb verb) {
    if (verb == Verb::Abandon) {
      Write(u"app\\lib\\core.dll", "changed");
      ASSERT_EQ(Run(kPrepare).code, 0);
    }
    if (verb == Verb::Adopt) Write(u"app\\lib\\core.dll", "core 2");
  }

  void ExpectMembers(const VerbRow& verb, const std::string& output) {
    const Json json = Json::parse(output);
    std::set<std::string> expected = {"verb", "outcome", "reasons"};
    for (std::string_view rest = verb.members; !rest.empty();) {
      const std::size_t end = std::min(rest.find(", "), rest.size());
      expected.emplace(rest.substr(0, end));
      rest.remove_prefix(std::min(end + 2, rest.size()));
    }
    std::set<std::string> members;
    for (const auto& [name, value] : json.items()) members.insert(name);
    EXPECT_EQ(members, expected);
    EXPECT_EQ(json.at("outcome"), "done");
    EXPECT_EQ(json.at("verb"), Utf8FromUtf16(verb.name));
  }
};

TEST_F(CommandLine, TheExamplesOfTheHelpRunOneAfterAnother) {
  for (const bool json : {false, true}) {
    computer().disk.Remove(InWork(u"state"));
    Write(u"app\\Tolvarine.exe", "executable 1");
    for (const VerbRow& verb : AllVerbs()) {
      for (const std::string_view example : verb.examples) {
        if (example.empty()) continue;
        SCOPED_TRACE(example);
        ASSERT_NO_FATAL_FAILURE(PrepareFor(verb.verb));
        const bool with_json = json && verb.verb != Verb::Help;
        const Ended ended = Run(std::string(example) + (with_json ? " --json" : ""));
        ASSERT_EQ(ended.code, 0) << ended.errors;
        EXPECT_NE(ended.output, "");
        EXPECT_EQ(ended.errors, "");
        if (with_json) ExpectMembers(verb, ended.output);
        if (verb.verb == Verb::Describe) Sign();
        const Ended help = Run("help " + Utf8FromUtf16(verb.name));
        EXPECT_NE(help.output.find(example), std::string::npos) << help.output;
        EXPECT_NE(help.output.find(verb.members), std::string::npos) << help.output;
      }
    }
    EXPECT_EQ(fixture.exit_code, 0);
    EXPECT_EQ(Read(u"app\\Tolvarine.exe"), "executable 2");
  }
}

TEST_F(CommandLine, WrongUsageIsRefusedBeforeAnythingIsDone) {
  const std::string id(64, 'a');
  const std::vector<std::string> lines = {
      "",
      "unknown",
      "--help",
      "status",
      "status --target app --state state --key",
      "status --target app --state state --key k --package p",
      "abandon --target app --target app --state state",
      "abandon --target app --state state --json --json",
      "abandon --target app --state state --id xyz!",
      "start --target app --state state",
      "start --target app --state state --wait 5 --no-wait",
      "start --target app --state state --wait 0",
      "start --target app --state state --wait 4294967296",
      "start --target app --state state --wait -1",
      "help status prepare",
      "help unknown",
      "describe --payload p",
      "describe --payload p --package r --channel c --version v --sequence 0 --to-sign t",
      "describe --payload p --package r --channel c --version v --sequence 1 --to-sign t "
      "--earlier e",
      "describe --payload p --signature s --output o",
      "describe --payload p --signature s --output o --key a --key b"};
  const auto before = computer().disk.Tree(u"C:\\");
  for (const std::string& line : lines) {
    const Ended ended = Run(line);
    EXPECT_EQ(ended.code, kWrongUsage) << line;
    EXPECT_EQ(ended.output, "") << line;
    EXPECT_EQ(std::ranges::count(ended.errors, '\n'), 1) << ended.errors;
  }
  // Windows hands over texts that are not well-formed.
  const std::u16string lone = u"\xD800";
  for (const std::u16string option : {u"--wait", u"--id", lone.c_str()}) {
    EXPECT_EQ(RunWords({u"start", u"--target", u"a", u"--state", u"s", option, lone}).code,
              kWrongUsage);
  }
  EXPECT_EQ(computer().disk.Tree(u"C:\\"), before);
}

TEST_F(CommandLine, AnUnfinishedUpdateAndATakenLockHaveExitCodesOfTheirOwn) {
  ASSERT_NO_FATAL_FAILURE(DescribeAndSign());
  ASSERT_EQ(Run(kPrepare).code, 0);
  const std::string finish = "finish --target app --state state";
  const std::string abandon = "abandon --target app --state state";
  const std::string start = "start --target app --state state --no-wait";

  const application::Installation installation =
      application::LocateInstallation(InWork(u"app"), InWork(u"state"));
  const platform::Handle held =
      computer().disk.Hold(JoinPath(installation.state, u"lock"), platform::kGenericRead, 0);
  for (const std::string& line : {std::string(kPrepare), std::string(kStatus), finish, abandon}) {
    EXPECT_EQ(Run(line).code, 4) << line;
    EXPECT_EQ(ReasonsOf(line), "locked ") << line;
  }
  computer().disk.Release(held);

  computer().calls.Inject({.call = simulated::Call::MoveFileExW,
                           .first = 1,
                           .times = simulated::kAlways,
                           .code = 5,
                           .path_suffix = u"\\app\\Tolvarine.exe.tolvarine-update-new"});
  ASSERT_EQ(Run(start).code, 0);
  computer().calls.ClearFaults();
  for (const std::string& line : {std::string(kPrepare), finish, abandon}) {
    EXPECT_EQ(Run(line).code, 3) << line;
    EXPECT_EQ(ReasonsOf(line), "unfinished-update ") << line;
  }
  const Json status = Json::parse(Run(std::string(kStatus) + " --json").output);
  EXPECT_EQ(status.at("updates").at(0).at("state"), "restoring");
}

}  // namespace
}  // namespace tolvarine::updater::update_tool
