#include "update/preflight.h"

#include <gtest/gtest.h>

#include <functional>

#include "engine/entry_temporary.h"
#include "release/digest.h"
#include "simulated_installation/simulated_installation.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::application {
namespace {

using simulated::Call;
using simulated::FileSet;
using simulated::PackagedRelease;
using simulated::SimulatedInstallation;

const FileSet kInstalled = {{u"Tolvarine.exe", "executable 1"},
                            {u"lib/a.dll", "a 1"},
                            {u"lib/same.dll", "same"},
                            {u"gone.txt", "gone"}};
const FileSet kReleased = {{u"Tolvarine.exe", "executable 2"},
                           {u"lib/a.dll", "a 2"},
                           {u"lib/same.dll", "same"},
                           {u"new/b.dll", "b"}};

// The names of the reasons, warnings in brackets.
std::string NamesOf(const Reasons& reasons) {
  std::string names;
  for (const Reason& reason : reasons) {
    const std::string name(NameOf(reason.code));
    names += (names.empty() ? "" : " ") + (reason.warning ? "(" + name + ")" : name);
  }
  return names;
}

std::string TextsOf(const Reasons& reasons) {
  std::string texts;
  for (const Reason& reason : reasons) texts += reason.text + "\n";
  return texts;
}

struct Case {
  explicit Case(char16_t state_drive = u'C') : fixture(state_drive) {
    first = fixture.Package(1, kInstalled);
    fixture.InstallFully(first);
    EXPECT_EQ(fixture.Adopt(first).outcome, Outcome::Done);
  }
  ~Case() { EXPECT_EQ(fixture.computer.files().open_handles(), 0u); }

  [[nodiscard]] Path InTarget(PathView name) const { return JoinPath(fixture.target, name); }
  simulated::DiskEditor& disk() { return fixture.computer.disk; }
  simulated::Volume& volume(char16_t drive) { return fixture.computer.disks.volume(drive); }
  void LeaveFree(char16_t drive, std::uint64_t bytes) {
    simulated::Volume& one = volume(drive);
    one.capacity = one.capacity - one.FreeBytes() + bytes;
  }
  void Hold(PathView name, std::uint32_t sharing) {
    held = disk().Hold(InTarget(name), platform::kGenericRead, sharing);
    fixture.computer.processes.by_id[77] = {.application_name = u"Some Editor"};
    fixture.computer.processes.file_holders[held] = 77;
  }
  void Deny(Call call, const std::u16string& suffix) {
    fixture.computer.calls.Inject(
        {.call = call, .first = 1, .times = simulated::kAlways, .code = 5, .path_suffix = suffix});
  }

  SimulatedInstallation fixture;
  PackagedRelease first;
  platform::Handle held = platform::kInvalidHandle;
};

TEST(Preflight, EachReasonIsFoundAndSaysWhatToDo) {
  struct Row {
    std::function<void(Case&)> arrange;
    std::string reasons;
    std::string words;
    char16_t state_drive = u'C';
  };
  const std::vector<Row> rows = {
      {[](Case&) {}, "", ""},
      {[](Case& c) { c.fixture.computer.processes.by_id[4000].elevated = true; }, "elevated-caller",
       "without these rights"},
      {[](Case& c) { c.Deny(Call::CreateFileW, u".tolvarine-update-new"); }, "target-not-writable",
       "cannot be written to"},
      {[](Case& c) { c.disk().Rename(c.fixture.target, u"C:\\Moved"); }, "not-a-directory",
       "Tolvarine\" is not a directory"},
      {[](Case& c) { c.volume(u'C').file_system = u"exFAT"; }, "unsupported-file-system",
       "Move it to an NTFS volume"},
      {[](Case& c) { c.volume(u'D').file_system = u"FAT32"; },
       "unsupported-file-system (two-volumes)", "The state directory lies on", u'D'},
      {[](Case&) {}, "(two-volumes)", "can be there again", u'D'},
      {[](Case& c) {
         c.disk().Remove(c.InTarget(u"lib")), c.disk().WriteFile(c.InTarget(u"lib"), "");
       },
       "wrong-kind", "\"lib\" is not a plain directory"},
      {[](Case& c) { c.disk().MakeDirectory(c.InTarget(u"new\\b.dll")); }, "wrong-kind",
       "\"new\\b.dll\" is not a plain file"},
      {[](Case& c) {
         c.disk().MakeDirectory(u"C:\\Other");
         c.disk().MakeJunction(c.InTarget(u"new"), u"C:\\Other");
       },
       "wrong-kind", "\"new\" is not a plain directory"},
      {[](Case& c) { c.disk().SetAttributes(c.InTarget(u"gone.txt"), 1); }, "read-only-file",
       "\"gone.txt\" is read-only. Clear the attribute"},
      {[](Case& c) { c.Hold(u"lib\\a.dll", platform::kFileShareRead); }, "file-held",
       "\"lib\\a.dll\" is held by \"Some Editor\" (process 77)"},
      // Neither its content nor whether it differs is known, and the rest is said all the same.
      {[](Case& c) {
         c.Hold(u"lib\\same.dll", 0);
         c.disk().SetAttributes(c.InTarget(u"gone.txt"), 1);
       },
       "read-only-file file-held", "\"lib\\same.dll\" cannot be read by \"Some Editor\""},
      {[](Case& c) { c.Deny(Call::CreateFileW, u"lib\\a.dll"); }, "target-not-writable",
       "the rights to read, write and delete"},
      {[](Case& c) {
         c.fixture.computer.processes.by_id[78] = {.image = c.InTarget(u"helper.exe")};
         c.Hold(u"lib\\a.dll", platform::kFileShareRead);
       },
       "(process-in-target) file-held", "The process 78 runs from"},
      // A file that the application itself has open is let go in time.
      {[](Case& c) {
         c.Hold(u"lib\\a.dll", platform::kFileShareRead);
         c.fixture.computer.processes.by_id[77].image = c.InTarget(u"Tolvarine.exe");
       },
       "(process-in-target) (file-held)", "It has to be let go before the update"},
      {[](Case& c) { c.disk().WriteFile(c.InTarget(u"lib\\a.dll"), "edited"); }, "(changed-file)",
       "\"lib\\a.dll\" has been changed by somebody else"},
      {[](Case& c) { c.disk().Remove(c.fixture.updater); }, "program-changed",
       "Name the updater that is to be used"},
      {[](Case& c) {
         c.fixture.updater = c.InTarget(u"lib\\TolvarineUpdater.exe");
         c.disk().WriteFile(c.fixture.updater, "of nobody");
       },
       "program-changed", "is not the one of the installed release"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.words);
    Case one(row.state_drive);
    const PackagedRelease second = one.fixture.Package(2, kReleased);
    row.arrange(one);
    const auto before = one.disk().Tree(u"C:\\");
    PrepareRequest request = one.fixture.RequestOf(second);
    const PreparedUpdate checked = Check(one.fixture.installation, request, one.fixture.keys);
    EXPECT_EQ(NamesOf(checked.result.reasons), row.reasons) << TextsOf(checked.result.reasons);
    EXPECT_NE(TextsOf(checked.result.reasons).find(row.words), std::string::npos)
        << TextsOf(checked.result.reasons);
    if (one.held != platform::kInvalidHandle) one.disk().Release(one.held);
    EXPECT_EQ(one.disk().Tree(u"C:\\"), before);
  }
}

// Each volume needs what is written to it, to the byte.
TEST(Preflight, TheSpaceThatIsNeededIsThatOfEveryCopyAndOfTheGrowth) {
  const auto check = [](Case& one, const PackagedRelease& second) {
    return NamesOf(Check(one.fixture.installation, one.fixture.RequestOf(second), one.fixture.keys)
                       .result.reasons);
  };
  // Staged 12 + 3 + 1; kept and backed up, each, 12 + 3 + 4; grown by 1; the largest has 12.
  constexpr std::uint64_t kStage = 16;
  constexpr std::uint64_t kInstalledTwice = 38;
  constexpr std::uint64_t kTarget = 13;
  Case one;
  const PackagedRelease second = one.fixture.Package(2, kReleased);
  const std::uint64_t needed = kStage + kInstalledTwice + kTarget;
  one.LeaveFree(u'C', needed - 1);
  EXPECT_EQ(check(one, second), "no-space");
  one.LeaveFree(u'C', needed);
  EXPECT_EQ(check(one, second), "");

  Case two(u'D');
  const PackagedRelease other = two.fixture.Package(2, kReleased);
  two.LeaveFree(u'D', kStage + kInstalledTwice);
  two.LeaveFree(u'C', kTarget);
  EXPECT_EQ(check(two, other), "(two-volumes)");
  two.LeaveFree(u'D', kStage + kInstalledTwice - 1);
  two.LeaveFree(u'C', kTarget - 1);
  EXPECT_EQ(check(two, other), "(two-volumes) no-space no-space");

  // What is prepared needs no more room than the run.
  two.LeaveFree(u'D', 1000000);
  two.LeaveFree(u'C', kTarget);
  ASSERT_EQ(two.fixture.Prepare(other).result.outcome, Outcome::Done);
  two.LeaveFree(u'D', kInstalledTwice / 2);
  EXPECT_EQ(check(two, other), "(two-volumes)");
}

TEST(Preflight, ListsAndCommandLineHaveALimit) {
  struct Row {
    std::size_t files;
    std::size_t gone;
    std::size_t path;  // Units of each.
    const char* reasons;
  };
  const std::vector<Row> rows = {{999, 0, 3, "list-too-long"},  // In bytes.
                                 {100, 100, 40, ""},
                                 {1, 1000, 8, ""},
                                 {1, 1001, 8, "list-too-long"},
                                 {100, 250, 45, "command-line-too-long"}};
  for (const Row& row : rows) {
    SimulatedInstallation fixture;
    const auto name = [&](char16_t first, std::size_t number) {
      std::u16string digits = Path(1, first);
      for (const char digit : std::to_string(number))
        digits.push_back(static_cast<char16_t>(digit));
      return std::u16string(row.path - std::min(row.path, digits.size()), u'p') + digits;
    };
    FileSet before = {{u"Tolvarine.exe", "1"}};
    FileSet after = {{u"Tolvarine.exe", "2"}};
    for (std::size_t i = 1; i < row.files; ++i) after[name(u'f', i)] = "";
    for (std::size_t i = 0; i < row.gone; ++i) before[name(u'g', i)] = "";
    const PackagedRelease first = fixture.Package(1, before);
    fixture.InstallFully(first);
    ASSERT_EQ(fixture.Adopt(first).outcome, Outcome::Done);
    const PreparedUpdate checked =
        Check(fixture.installation, fixture.RequestOf(fixture.Package(2, after)), fixture.keys);
    EXPECT_EQ(NamesOf(checked.result.reasons), row.reasons)
        << row.files << " " << row.gone << TextsOf(checked.result.reasons);
  }
}

// A path is as long as Windows takes it, in the place where it is longest, or by one unit too long.
TEST(Preflight, ALongPathIsRefusedAndTheLongestThatIsNotIsInstalled) {
  enum class Place { Backup, Target };  // A stage has shorter paths than a backup.
  const Path deep(200, u'x');
  for (const Place place : {Place::Backup, Place::Target}) {
    for (const bool directory : {false, true}) {
      // With its temporary, a file in a directory at the limit is too long in any case.
      if (directory && place == Place::Target) continue;
      for (const std::size_t excess : {0u, 1u}) {
        SCOPED_TRACE(std::to_string(static_cast<int>(place)) + " " + std::to_string(directory) +
                     " " + std::to_string(excess));
        SimulatedInstallation fixture;
        if (place == Place::Target) {
          fixture.target = u"C:\\" + deep;
          fixture.installation = LocateInstallation(fixture.target, fixture.state_root);
        }
        const UpdatePaths any = PathsOf(fixture.installation, std::u16string(64, u'0'));
        const Path root =
            place == Place::Backup ? JoinPath(any.transaction, u"backup") : fixture.target;
        const std::size_t suffix = place == Place::Target ? kTemporarySuffix.size() : 0;
        // Either the file's path is at its limit, or the one of its directory.
        const std::size_t length = directory ? 247 + 2 : 259 - suffix;
        std::u16string name(length + excess - root.size() - 1, u'n');
        name[directory ? name.size() - 2 : name.size() / 2] = u'/';

        const PackagedRelease first = fixture.Package(1, {{u"Tolvarine.exe", "1"}});
        fixture.InstallFully(first);
        ASSERT_EQ(fixture.Adopt(first).outcome, Outcome::Done);
        const FileSet files = {{u"Tolvarine.exe", "2"}, {name, "long"}};
        const PackagedRelease second = fixture.Package(2, files);
        const PreparedUpdate prepared = fixture.Prepare(second);
        EXPECT_EQ(NamesOf(prepared.result.reasons), excess == 0 ? "" : "path-too-long")
            << TextsOf(prepared.result.reasons);
        if (prepared.result.outcome != Outcome::Done) continue;
        EXPECT_EQ(fixture.Start().result.outcome, Outcome::Done);
        EXPECT_EQ(fixture.exit_code, 0);
        EXPECT_EQ(fixture.Target(), files);
        EXPECT_EQ(fixture.Finish().outcome, Outcome::Done);
      }
    }
  }
}

// The lists of an unfinished update are its own, and may hold what no description does.
TEST(Preflight, ReservedNamesAreFoundInAnyList) {
  Case one;
  const Difference difference = {.changed = {{u"log.txt", 1, Sha256OfBytes("")},
                                             {u"a.tolvarine-update-new", 1, Sha256OfBytes("")}},
                                 .deletions = {u"Log.TXT"}};
  const std::u16string id(64, u'0');
  const Reasons reasons = FindReasons({.installation = one.fixture.installation,
                                       .difference = difference,
                                       .restart = u"Tolvarine.exe",
                                       .source = PathsOf(one.fixture.installation, id).stage,
                                       .id = id});
  EXPECT_EQ(NamesOf(reasons), "reserved-name reserved-name reserved-name");
}

}  // namespace
}  // namespace tolvarine::updater::application
