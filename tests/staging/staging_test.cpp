#include "staging/staging.h"

#include <gtest/gtest.h>

#include <functional>

#include "driver/main_sequence.h"
#include "driver/update_log.h"
#include "lists/list_text.h"
#include "platform/files.h"
#include "platform/shell.h"
#include "simulated_update/simulated_update.h"
#include "support/simulated_fixture.h"
#include "support/text_printers.h"

namespace tolvarine::updater::staging {
namespace {

using simulated::Call;
using simulated::Computer;
using simulated::FileSet;

constexpr std::u16string_view kRelease = u"C:\\build\\release";
constexpr std::u16string_view kTarget = u"C:\\Program Files\\Tolvarine";

class Staging : public SimulatedFixture {
 protected:
  void CreateFiles(std::u16string_view root, const FileSet& files) {
    for (const auto& [path, content] : files)
      computer.disk.WriteFile(JoinPath(root, path), content);
  }

  // The smallest valid release and these files.
  void SetUpRelease(const FileSet& files = {}) {
    CreateFiles(kRelease, {{u"Tolvarine.exe", "x"}});
    CreateFiles(kRelease, files);
  }

  [[nodiscard]] static Problems Check(const ManagedDeletionList& deletions = {}) {
    return CheckRelease(Path(kRelease), deletions);
  }

  simulated::UpdatePlan plan = simulated::TypicalPlan();
  StagingRequest request{.release = Path(kRelease),
                         .target = Path(kTarget),
                         .state_root = u"C:\\State",
                         .install_key = std::u16string(simulated::kInstallKey),
                         .update_id = std::u16string(simulated::kUpdateId),
                         .deletions = plan.deletions};
  UpdateLayout layout = LayoutOf(request.state_root, request.install_key, request.update_id);
  Path source = JoinPath(layout.stages, kReleaseName);

  void SetUpUpdate() {
    CreateFiles(kRelease, plan.release);
    CreateFiles(kTarget, plan.baseline);
    computer.disk.MakeDirectory(JoinPath(kRelease, u"empty\\directory"));
  }
};

// --- Problems of a release -----------------------------------------------------------------------

using Setup = std::function<void(Computer&)>;

// Uses the extended form of the path, in which Windows leaves unusual names unchanged.
Setup File(std::u16string_view name) {
  return [=](Computer& at) { at.disk.WriteFile(Path(u"\\\\?\\") + JoinPath(kRelease, name), "y"); };
}

struct TreeCase {
  const char* name;
  Setup setup;  // Applied to a valid release.
  Problems problems;
};

const TreeCase kTreeCases[] = {
    {"valid", [](Computer&) {}, {}},
    {"no executable",
     [](Computer& at) { at.disk.Rename(JoinPath(kRelease, u"Tolvarine.exe"), u"C:\\elsewhere"); },
     {"There is no file Tolvarine.exe at the top level of the release."}},

    {"lone surrogate",
     File(u"\xD800"),
     {"\"\xEF\xBF\xBD\" cannot be in a release: \"\xEF\xBF\xBD\" is no well-formed text."}},
    {"name of a temporary",
     File(u"a.Tolvarine-Update-New"),
     {"\"a.Tolvarine-Update-New\" cannot be in a release: \"a.Tolvarine-Update-New\" has the "
      "ending "
      "of the updater's own temporaries, which it removes."}},

    {"hard link",
     [](Computer& at) {
       at.disk.MakeHardLink(JoinPath(kRelease, u"Tolvarine.exe"), u"C:\\second");
     },
     {"\"Tolvarine.exe\" has 2 names (hard links), a release file must have one."}},
    {"open elsewhere",
     [](Computer& at) {
       at.disk.Hold(JoinPath(kRelease, u"Tolvarine.exe"), platform::kGenericWrite,
                    platform::kFileShareAll);
     },
     {"\"Tolvarine.exe\" cannot be locked and read: Could not lock release source: The process "
      "cannot access the file because it is being used by another process."}},
    // A volume folds case unit by unit, the updater character by character: two files, one key.
    {"two files with one key",
     [](Computer& at) {
       File(u"\U00010400")(at);
       File(u"\U00010428")(at);
     },
     {"\"\U00010400\" and \"\U00010428\" differ only in case."}},
};

TEST_F(Staging, EveryProblemOfAReleaseIsReported) {
  for (const TreeCase& each : kTreeCases) {
    Computer fresh;
    fresh.MakeCurrent();
    fresh.disk.WriteFile(JoinPath(kRelease, u"Tolvarine.exe"), "x");
    each.setup(fresh);
    EXPECT_EQ(Check(), each.problems) << each.name;
  }
  computer.MakeCurrent();
}

std::string Impossible(const std::string& path, const std::string& why) {
  return "The deletion \"" + path + "\" cannot be made: " + why + ".";
}

TEST_F(Staging, EveryProblemOfADeletionIsReported) {
  const std::pair<ManagedDeletionList, Problems> cases[] = {
      {{u"lib/old.dll", u"Lib2"}, {}},
      {{u"a.dll", u"A.dll"}, {"\"a.dll\" and \"A.dll\" differ only in case."}},
      {{u"a.dll", u"a.dll"}, {"\"a.dll\" is named twice."}},
      {{u"LIB/A"}, {"The deletion \"LIB/A\" names a file of the release."}},
      {{u"lib"}, {"The deletion \"lib\" names a directory of the release."}},
      {{u"lib/a/b/c"}, {"The deletion \"lib/a/b/c\" lies below a file of the release."}},
      {{u"a/"}, {Impossible("a/", "it has an empty name in it")}},
      {{u"a/../b"}, {Impossible("a/../b", "\"..\" does not name a file")}},
      {{u"a/b?c"}, {Impossible("a/b?c", "\"b?c\" holds the character \"?\"")}}};
  SetUpRelease({{u"Lib/a", ""}});
  for (const auto& [deletions, problems] : cases) {
    EXPECT_EQ(Check(deletions), problems) << testing::PrintToString(deletions);
  }
}

TEST_F(Staging, AllProblemsAreReportedAtOnce) {
  SetUpRelease();
  computer.disk.MakeSymbolicLink(u"C:\\build\\release\\link", u"Tolvarine.exe", false);
  File(u"lib\\nul")(computer);
  for (char16_t number = 0x4E00; number < 0x4E00 + 1000; ++number) File(Path(1, number))(computer);
  const Problems problems = Check({u"Tolvarine.exe"});
  ASSERT_EQ(problems.size(), 5u) << testing::PrintToString(problems);
  EXPECT_EQ(problems[2], "There are 1002 files, 2 more than the 1000 that an update may have.");
}

// --- Paths and the command line -----------------------------------------------------------------

TEST_F(Staging, PathsThatAreTooLongAreReported) {
  const std::size_t room = 259 - source.size() - 1;
  const Path longest(room, u'f');
  computer.disk.MakeDirectory(kTarget);
  EXPECT_EQ(CheckPlaces(layout, Path(kTarget), {longest}, {}), Problems{});
  EXPECT_EQ(CheckPlaces(layout, Path(kTarget), {longest + u"f"}, {}),
            Problems{Quoted(longest + u"f") + " makes a path in the stage of 260 units, 1 more "
                                              "than the 259 that Windows takes."});
  // The backup has deeper paths, and only installed files are in it.
  computer.disk.WriteFile(JoinPath(kTarget, longest), "old");
  EXPECT_EQ(CheckPlaces(layout, Path(kTarget), {}, {longest}).size(), 1u);
  computer.disk.MakeDirectory(JoinPath(kTarget, u"lib"));
  EXPECT_EQ(CheckPlaces(layout, Path(kTarget), {u"lib"}, {}),
            Problems{"\"lib\" is no plain file in the installation."});
  const Path deep = Path(room - 10, u'd') + u"/f";
  EXPECT_EQ(CheckPlaces(layout, Path(kTarget), {deep}, {}),
            Problems{Quoted(deep) + " needs a directory in the stage of 249 units, 2 more than "
                                    "the 247 that Windows takes."});
}

TEST_F(Staging, QuotedArgumentsAreParsedUnchanged) {
  for (const Path argument : {u"", u"a b", u"\t\n", u"\"", u"a\\", u"\\\\a\\ b\\\\", u"\\\"",
                              u"\\\\\" \"\\", u"\u00E9\xD83D\"\""}) {
    const Path line = u"program " + QuoteArgument(argument) + u" " + QuoteArgument(u"end");
    std::int32_t count = 0;
    char16_t** const arguments = platform::CommandLineToArgvW(line.c_str(), &count);
    ASSERT_EQ(count, 3) << Shown(line);
    EXPECT_EQ(Path(arguments[1]), argument) << Shown(line);
    platform::LocalFree(arguments);
  }
}

// --- Staging -------------------------------------------------------------------------------------

TEST_F(Staging, StagedUpdateInstalls) {
  SetUpUpdate();
  const StagedUpdate staged = StageUpdate(request);
  ASSERT_EQ(staged.problems, Problems{});
  EXPECT_EQ(computer.disk.Tree(source),
            computer.disk.Tree(kRelease));  // Empty directories included.
  EXPECT_EQ(computer.disk.ReadFile(JoinPath(layout.stages, u"source-inventory.txt")),
            SerializeSourceInventory(staged.arguments.source_inventory));
  EXPECT_EQ(computer.disk.ReadFile(JoinPath(layout.stages, u"managed-deletions.txt")),
            SerializeManagedDeletionList(plan.deletions));
  const auto pending = computer.disk.ReadFile(layout.pending_marker);

  computer.desktop.command_line = CommandLineOf(u"C:\\TolvarineUpdater.exe", staged.arguments);
  UpdateLogPath().clear();
  ASSERT_EQ(RunUpdater(), 0);
  EXPECT_EQ(computer.disk.ReadFile(JoinPath(kTarget, u"lib\\core.dll")),
            plan.release[u"lib/core.dll"]);
  EXPECT_FALSE(computer.disk.Exists(JoinPath(kTarget, u"lib\\old.dll")));
  EXPECT_EQ(computer.disk.ReadFile(layout.completed_marker), pending);
  EXPECT_EQ(StageUpdate(request).problems.size(), 1u);  // It is installed already.
}

TEST_F(Staging, StagingAgainChangesNothingAndAnotherReleaseIsRefused) {
  SetUpUpdate();
  ASSERT_EQ(StageUpdate(request).problems, Problems{});
  const auto before = computer.disk.Tree(u"C:\\State");
  EXPECT_EQ(StageUpdate(request).problems, Problems{});
  EXPECT_EQ(computer.disk.Tree(u"C:\\State"), before);

  SetUpRelease({{u"more.dll", "not staged"}});
  const Problems problems = StageUpdate(request).problems;
  ASSERT_EQ(problems.size(), 1u);
  EXPECT_TRUE(problems[0].starts_with("The stage ")) << problems[0];
  EXPECT_EQ(computer.disk.Tree(u"C:\\State"), before);
}

TEST_F(Staging, AfterAFailureTheStageIsCompleteOrAbsent) {
  for (const Call call : {Call::CreateDirectoryW, Call::CreateFileW, Call::WriteFile,
                          Call::FlushFileBuffers, Call::MoveFileExW}) {
    for (std::uint64_t first = 1;; ++first) {
      SCOPED_TRACE(std::string(CallName(call)) + " " + std::to_string(first));
      Computer fresh;
      fresh.MakeCurrent();
      for (const auto& [path, content] : plan.release) {
        fresh.disk.WriteFile(JoinPath(kRelease, path), content);
      }
      fresh.disk.MakeDirectory(kTarget);
      fresh.calls.Inject({.call = call, .first = first, .code = 112});
      bool failed = false;
      try {
        failed = !StageUpdate(request).problems.empty();
      } catch (const std::exception&) {
        failed = true;
      }
      fresh.calls.ClearFaults();
      EXPECT_TRUE(!fresh.disk.Exists(source) ||
                  fresh.disk.Tree(source) == fresh.disk.Tree(kRelease));
      EXPECT_EQ(StageUpdate(request).problems, Problems{});
      EXPECT_EQ(fresh.disk.Tree(source), fresh.disk.Tree(kRelease));
      if (!failed) break;
    }
  }
  computer.MakeCurrent();
}

}  // namespace
}  // namespace tolvarine::updater::staging
