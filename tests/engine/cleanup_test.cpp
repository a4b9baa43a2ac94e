#include "engine/cleanup.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

TEST(CleanupTest, TemporariesAndEmptyDirectoriesAreRemoved) {
  SimulatedUpdate update;
  Both(LeftIn(RolledBack), Write(u"T\\plug\\kept.txt", "the person's own"))(update);
  Directory(u"T\\never")(update);
  const auto expected = update.computer.disk.Tree(update.target);
  for (const Path path : {u"T\\never\\there.txt", u"T\\readme.txt", u"T\\plug\\ins\\new.dll"}) {
    Write(path + u".tolvarine-update-new")(update);
  }
  const FileSet transaction = update.Transaction();
  std::string error = "left";
  EXPECT_TRUE(CleanupRolledBack(update.Request(), &error));
  EXPECT_EQ(error, "");
  EXPECT_EQ(update.computer.disk.Tree(update.target), expected);
  EXPECT_EQ(update.Transaction(), transaction);
}

struct RefusalCase {
  const char* name;
  Change change;
  const char* error;
};

TEST(CleanupTest, RefusedCleanupRemovesNothing) {
  const Change corrupt =
      Both(Both(Remove(u"X\\journal.0"), Remove(u"X\\journal.1")), Write(u"X\\x"));
  const Change way_out = Both(Write(u"C:\\State\\ins\\new.dll.tolvarine-update-new"),
                              Junction(u"T\\plug", u"C:\\State"));
  constexpr char kNotRolledBack[] = "Cleanup requires a completed rollback";
  const RefusalCase cases[] = {
      {"no journal", NoChange, kNotRolledBack},
      {"another phase", LeftIn(Committed), kNotRolledBack},
      {"corrupt journal", Both(LeftIn(RolledBack), corrupt), kJournalCorruptText},
      {"junction", Both(LeftIn(RolledBack), way_out), "target temporary path escapes its root"}};
  ForEachCase(cases, [](const RefusalCase& each) {
    SimulatedUpdate update;
    Both(each.change, Write(u"T\\readme.txt.tolvarine-update-new"))(update);
    const auto disk = update.computer.disk.Tree(u"C:\\");
    std::string error;
    EXPECT_FALSE(CleanupRolledBack(update.Request(), &error));
    EXPECT_EQ(error, each.error);
    EXPECT_EQ(update.computer.disk.Tree(u"C:\\"), disk);
  });
}

}  // namespace
}  // namespace tolvarine::updater
