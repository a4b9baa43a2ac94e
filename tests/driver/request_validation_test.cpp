#include "driver/request_validation.h"

#include <gtest/gtest.h>

#include <iterator>

#include "support/update_changes.h"

namespace tolvarine::updater {
namespace {

using A = UpdaterArguments;
using Field = Path A::*;

Change Set(Field field, const Path& path) {
  return [=](SimulatedUpdate& update) { update.arguments.*field = Resolve(update, path); };
}

Change Barred(Field field) {
  return Both(Set(field, u"C:\\barred"), Inject(Call::CreateFile2, u"barred", 1, kAlways));
}

struct Check {
  Change change;
  const char16_t* message;
};

const Path kId(simulated::kUpdateId);

// The checks in their order, each with what makes it fail.
const Check kChecks[] = {
    {Barred(&A::workspace), u"Could not canonicalize the update workspace."},
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
    row->change(one);
    EXPECT_EQ(ValidateRequest(one.arguments), row->message);
    all.computer.MakeCurrent();
    row->change(all);
    const auto disk = all.computer.disk.Tree(u"C:\\");
    A arguments = all.arguments;
    EXPECT_EQ(ValidateRequest(arguments), row->message);
    EXPECT_EQ(all.computer.disk.Tree(u"C:\\"), disk);
  }
}

struct AcceptedCase {
  const char* name;
  Change change;
  Path source;  // Its canonical form.
};

TEST(RequestValidationTest, LayoutIsCheckedOnCanonicalPaths) {
  const AcceptedCase cases[] = {
      {"target", Set(&A::target, u"c:/PROGRAM FILES/x/../tolvarine/"), u"S"},

      {"source through a junction",
       Both(Junction(u"C:\\alias", u"S"), Set(&A::source, u"C:\\alias")), u"S"},
      {"source is the stages directory", Both(Set(&A::source, u"K"), Write(u"K\\Tolvarine.exe")),
       u"K"},

      {"marker is missing",
       Both(Remove(u"W\\pending.json"), Set(&A::state_file, u"W/x/../PENDING.json")), u"S"},
      {"application is a link", Link(u"S\\Tolvarine.exe", u"readme.txt"), u"S"}};
  ForEachCase(cases, [&](const AcceptedCase& each) {
    SimulatedUpdate update;
    each.change(update);
    EXPECT_EQ(ValidateRequest(update.arguments), u"");
    EXPECT_EQ(update.arguments.source, Resolve(update, each.source));
    EXPECT_EQ(update.arguments.target, update.target);
    EXPECT_EQ(update.arguments.workspace, update.layout.workspace);
    EXPECT_TRUE(PathsEqual(update.arguments.state_file, update.layout.pending_marker));
    EXPECT_EQ(update.arguments.restart, u"Tolvarine.exe");
  });
}

struct RefusedCase {
  const char* name;
  Change change;
  const char16_t* message;
};

TEST(RequestValidationTest, LayoutThatOnlyLooksRightIsRefused) {
  const Change at_root = Both(Set(&A::workspace, u"C:\\" + kId),
                              Set(&A::source, u"C:\\s\\" + kId.substr(0, 32) + u"\\release"));
  const char16_t* const overlap = kChecks[13].message;
  const char16_t* const no_application = kChecks[14].message;
  const RefusedCase cases[] = {

      {"stages are a junction",
       Both(Junction(u"K", u"C:\\Real"), Write(u"C:\\Real\\release\\Tolvarine.exe")),
       kChecks[6].message},
      {"workspace at the root", at_root, kChecks[8].message},

      {"target contains the workspace", Set(&A::target, u"W\\.."), overlap},

      {"application is a broken link", Link(u"S\\Tolvarine.exe", u"nothing"), no_application}};
  ForEachCase(cases, [](const RefusedCase& each) {
    SimulatedUpdate update;
    each.change(update);
    EXPECT_EQ(ValidateRequest(update.arguments), each.message);
  });
}

TEST(RequestValidationTest, PathsCompareByWholeElementsWithoutCase) {
  Computer computer;
  computer.MakeCurrent();
  EXPECT_TRUE(PathsEqual(u"C:\\a\\B\\\u00C4", u"c:/A/x/../b/\u00E4"));
  EXPECT_TRUE(IsPathWithin(u"C:\\a\\b\\c", u"c:/A/B"));
  EXPECT_FALSE(IsPathWithin(u"C:\\a\\bc", u"C:\\a\\b"));
  EXPECT_FALSE(IsPathWithin(u"C:\\a", u"C:\\a\\b"));
  EXPECT_FALSE(IsPathWithin(u"C:\\a\\b", u"C:\\a\\")) << "a separator is an element";
  EXPECT_TRUE(IsSafeDirectory(u"C:/a") && IsSafeDirectory(u"\\\\server\\share"));
  for (const char16_t* const path : {u"\\a", u"C:a", u"C:\\", u"C:\\a\\", u"\\\\server"}) {
    EXPECT_FALSE(IsSafeDirectory(path)) << Shown(path);
  }
}

}  // namespace
}  // namespace tolvarine::updater
