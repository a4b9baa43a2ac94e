#include "driver/request_validation.h"

#include <gtest/gtest.h>

#include <iterator>

#include "support/update_scenes.h"

namespace tolvarine::updater {
namespace {

using A = UpdaterArguments;
using Field = Path A::*;

Act Set(Field field, const Path& path) {
  return [=](SimulatedUpdate& update) { update.arguments.*field = Place(update, path); };
}

Act Barred(Field field) {
  return Both(Set(field, u"C:\\barred"), Inject(Call::CreateFile2, u"barred", 1, kAlways));
}

struct Check {
  Act act;
  const char16_t* message;
};

const Path kId(simulated::kUpdateId);

// The checks in their order, each with what makes it fail.
const Check kChecks[] = {
    {Barred(&A::source), u"Could not canonicalize the release source."},
    {Barred(&A::target), u"Could not canonicalize the installation target."},
    {Barred(&A::workspace), u"Could not canonicalize the update workspace."},
    {Barred(&A::state_file), u"Could not canonicalize the pending marker."},
    {Barred(&A::completed_file), u"Could not canonicalize the completed marker."},
    {Barred(&A::installed_manifest_file), u"Could not canonicalize the installed manifest marker."},
    {Set(&A::source, u"not\\full"), u"The release source is not a safe directory."},
    {Set(&A::target, u"C:\\"), u"The installation target is not a safe directory."},
    {Set(&A::workspace, u"C:\\"), u"The update workspace is not a safe directory."},
    {Both(Set(&A::source, u"S"), Set(&A::target, u"S")),
     u"The release source and installation target are the same directory."},
    {Set(&A::source, u"K\\..\\00000000000000000000000000000000\\release"),
     u"The release source is outside the installation's authenticated stages directory."},
    {Set(&A::workspace, u"W\\..\\another"),
     u"The workspace update ID does not match the requested update ID."},
    {Set(&A::workspace, u"K\\..\\" + kId),
     u"The workspace is outside the expected updates directory."},
    {[](SimulatedUpdate& update) { update.arguments.install_key[0] = u'f'; },
     u"The workspace installation key does not match the requested installation key."},
    {Set(&A::state_file, u"W\\x\\pending.json"),
     u"The pending marker is outside the requested workspace."},
    {Set(&A::completed_file, u"W\\pending.json"),
     u"The completed marker is outside the requested workspace."},
    {Set(&A::installed_manifest_file, u"W\\installed-manifest.json"),
     u"The installed manifest marker is outside the installation state directory."},
    {Set(&A::target, u"W\\application"), u"The update workspace overlaps the installation target."},
    {Remove(u"S\\Tolvarine.exe"),
     u"The release source does not contain a regular Tolvarine.exe file."},
};

TEST(RequestValidationTest, FirstFailingCheckIsTheOneReported) {
  SimulatedUpdate all;  // With every later check failing, too.
  for (auto row = std::rbegin(kChecks); row != std::rend(kChecks); ++row) {
    SimulatedUpdate one;
    row->act(one);
    EXPECT_EQ(ValidateRequest(one.arguments), row->message);
    all.computer.MakeCurrent();
    row->act(all);
    const auto disk = all.computer.disk.Tree(u"C:\\");
    A arguments = all.arguments;
    EXPECT_EQ(ValidateRequest(arguments), row->message);
    EXPECT_EQ(all.computer.disk.Tree(u"C:\\"), disk);
  }
}

TEST(RequestValidationTest, LayoutIsProvedOnCanonicalPaths) {
  const std::pair<Act, Path> rows[] = {
      // And what the source becomes.
      {Set(&A::target, u"c:/PROGRAM FILES/x/../tolvarine/"), u"S"},
      {Set(&A::workspace, u"W\\"), u"S"},
      {Both(Junction(u"C:\\alias", u"S"), Set(&A::source, u"C:\\alias")), u"S"},
      {Set(&A::source, u"S\\LIB\\.."), u"S"},
      {Both(Set(&A::source, u"K"), Write(u"K\\Tolvarine.exe")), u"K"},
      {Both(Set(&A::source, u"S\\deep"), Write(u"S\\deep\\Tolvarine.exe")), u"S\\deep"},
      {Both(Remove(u"W\\pending.json"), Set(&A::state_file, u"W/x/../PENDING.json")), u"S"},
      {Link(u"S\\Tolvarine.exe", u"readme.txt"), u"S"}};
  ForEachRow(rows, [&](const auto& row) {
    SimulatedUpdate update;
    row.first(update);
    EXPECT_EQ(ValidateRequest(update.arguments), u"");
    EXPECT_EQ(update.arguments.source, Place(update, row.second));
    EXPECT_EQ(update.arguments.target, update.target);
    EXPECT_EQ(update.arguments.workspace, update.layout.workspace);
    EXPECT_TRUE(PathsEqual(update.arguments.state_file, update.layout.pending_marker));
    EXPECT_EQ(update.arguments.restart, u"Tolvarine.exe");
  });
}

TEST(RequestValidationTest, LayoutThatOnlyLooksRightIsRefused) {
  const Act at_root = Both(Set(&A::workspace, u"C:\\" + kId),
                           Set(&A::source, u"C:\\s\\" + kId.substr(0, 32) + u"\\release"));
  const char16_t* const overlap = kChecks[17].message;
  const char16_t* const no_application = kChecks[18].message;
  const Check rows[] = {
      {Both(Remove(u"W"), Set(&A::workspace, u"W\\")), kChecks[8].message},
      {Both(Junction(u"K", u"C:\\Real"), Write(u"C:\\Real\\release\\Tolvarine.exe")),
       kChecks[10].message},
      {at_root, kChecks[12].message},
      {Set(&A::target, u"W"), overlap},
      {Set(&A::target, u"W\\.."), overlap},
      {Directory(u"S\\Tolvarine.exe"), no_application},
      {Link(u"S\\Tolvarine.exe", u"nothing"), no_application},
      {Inject(Call::GetFileAttributesExW, u"release\\Tolvarine.exe"), no_application}};
  ForEachRow(rows, [](const Check& row) {
    SimulatedUpdate update;
    row.act(update);
    EXPECT_EQ(ValidateRequest(update.arguments), row.message);
  });
}

TEST(RequestValidationTest, PathsCompareByWholeElementsWithoutCase) {
  struct Row {
    const char16_t* path;
    const char16_t* base;
    bool equal, within;
  };
  const Row rows[] = {{u"", u"", true, true},
                      {u"C:\\a\\b", u"c:/A/x/../B", true, true},
                      {u"C:\\\u00C4", u"c:\\\u00E4", true, true},
                      {u"C:\\a\\bc", u"C:\\a\\b", false, false},
                      {u"C:\\a\\b\\c", u"C:\\A\\B", false, true},
                      {u"C:\\a", u"C:\\a\\b", false, false},
                      {u"C:\\a\\b", u"C:\\a\\", false, false},
                      {u"D:\\a", u"C:\\", false, false},
                      {u"C:\\a\\..\\b", u"C:\\a", false, false}};
  Computer computer;
  computer.MakeCurrent();
  ForEachRow(rows, [](const Row& row) {
    EXPECT_EQ(PathsEqual(row.path, row.base), row.equal);
    EXPECT_EQ(IsPathWithin(row.path, row.base), row.within);
  });
  EXPECT_TRUE(IsSafeDirectory(u"C:/a") && IsSafeDirectory(u"\\\\server\\share"));
  for (const char16_t* const path :
       {u"", u"a", u"\\a", u"C:a", u"C:\\", u"C:\\a\\", u"\\\\server"}) {
    EXPECT_FALSE(IsSafeDirectory(path)) << Shown(path);
  }
}

}  // namespace
}  // namespace tolvarine::updater
