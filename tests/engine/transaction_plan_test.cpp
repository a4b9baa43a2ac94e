#include "engine/transaction_plan.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"
#include "text/fnv1a.h"

namespace tolvarine::updater {
namespace {

TransactionJournal PlanOf(const SimulatedUpdate& update) {
  const UpdaterArguments& lists = update.arguments;
  const SourceInventory inventory = NormalizeSourceInventory(lists.source_inventory);
  return PlanTransaction(update.source, update.target, inventory,
                         NormalizeManagedDeletionList(lists.managed_deletions, inventory));
}

// What is to happen, to what, and over what: the size and fingerprint of what stood there. Then the
// missing directories.
std::string Shown(const TransactionJournal& record) {
  std::string text;
  for (const JournalEntry& entry : record.entries) {
    text += entry.kind == JournalEntryKind::Delete ? "delete " : "install ";
    text += NarrowPathText(entry.path) + " " + std::to_string(entry.size);
    if (entry.baseline_exists) text += " over " + std::to_string(entry.baseline_size);
    if (entry.baseline_exists) text += " " + std::to_string(entry.baseline_hash);
    text += "\n";
  }
  for (const JournalDirectory& directory : record.directories) {
    text += NarrowPathText(directory.path) + "\n";
  }
  return text;
}

// Invariant 5.
TEST(TransactionPlanTest, DeletionsComeFirstAndTheApplicationLast) {
  const SimulatedUpdate update;
  const auto over = [&](const char16_t* path) {
    const std::string& content = update.plan.baseline.at(path);
    return " over " + std::to_string(content.size()) + " " + std::to_string(Fnv1a64(content));
  };
  const TransactionJournal record = PlanOf(update);
  EXPECT_EQ(Shown(record), "delete lib/old.dll 0" + over(u"lib/old.dll") +
                               "\ndelete never/there.txt 0\ninstall empty.dat 0\n"
                               "install lib\\core.dll 25" +
                               over(u"lib/core.dll") +
                               "\ninstall plug\\ins\\new.dll 22\n"
                               "install readme.txt 1800" +
                               over(u"readme.txt") + "\ninstall Tolvarine.exe 14" +
                               over(u"Tolvarine.exe") + "\nplug\\ins\nplug\n");
  EXPECT_EQ(record.entries[0].sha256, std::string(64, '0'));
  EXPECT_EQ(record.phase, TransactionPhase::Backup);
  EXPECT_EQ(record.target, update.target);
  EXPECT_EQ(record.generation, 0u);
}

TEST(TransactionPlanTest, MissingDirectoriesStandOnceAndDeepestFirst) {
  UpdatePlan plan;
  plan.baseline = {{u"lib/present.txt", ""}};
  plan.release = {{u"a/b/c.txt", ""}, {u"a/d.txt", ""}, {u"lib/Z/q.txt", ""}, {u"x/y/z/w", ""}};
  plan.release[u"TOLVARINE.EXE"] = "in any case";
  const std::string shown = Shown(PlanOf(SimulatedUpdate(plan)));
  EXPECT_TRUE(shown.ends_with("EXE 11\nx\\y\\z\na\\b\nlib\\Z\nx\\y\na\nx\n")) << shown;
}

TEST(TransactionPlanTest, TargetThatCannotBeUpdatedIsRefused) {
  constexpr char kNoFile[] = "Update target entry is not a regular file";
  constexpr char kNoDirectory[] = "Update target parent is not a regular directory";
  constexpr char kDenied[] = "Access is denied.";
  constexpr Call kQuery = Call::GetFileAttributesExW;
  const std::pair<Act, const char*> rows[] = {
      {Directory(u"T\\readme.txt"), kNoFile},
      {Link(u"T\\readme.txt", u"lib\\core.dll"), kNoFile},
      {Write(u"T\\plug"), kNoDirectory},
      {Junction(u"T\\plug", u"T\\lib"), kNoDirectory},
      {Junction(u"T\\plug", u"C:\\State"), "update target path escapes its root"},
      {Inject(kQuery, u"core.dll"), kDenied},
      {Inject(kQuery, u"there.txt"), kDenied},
      {Inject(kQuery, u"plug\\ins"), kDenied},
      {Inject(kQuery, u"readme.txt", 2), kDenied},  // The size.
      {Inject(kQuery, u"core.dll", 1, 1, 267), "The directory name is invalid."},
      {Inject(kQuery, u"readme.txt", 1, 1, 53), ""},  // A lost network path counts as absence.
      {Inject(Call::WfsOpen, u"readme.txt"), "Could not open file for hashing: |T\\readme.txt|"},
      {Inject(Call::Fread, u"readme.txt"), "Could not hash file: |T\\readme.txt|"}};
  ForEachRow(rows, [](const auto& row) {
    SimulatedUpdate update;
    row.first(update);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(PlanOf(update)); }), Text(update, row.second));
  });
}

TEST(TransactionPlanTest, ApplicationIsRequiredAtTheTopOfTheRelease) {
  const SimulatedUpdate update;
  const auto failure = [&](const SourceInventory& inventory, const ManagedDeletionList& deletions) {
    return FailureOf(
        [&] { static_cast<void>(PlanTransaction({}, update.target, inventory, deletions)); });
  };
  EXPECT_EQ(failure({}, {}), "Release contains no files");
  EXPECT_EQ(failure({}, {u"Tolvarine.exe"}), "Release is missing Tolvarine.exe");
  EXPECT_EQ(failure({{u"bin\\Tolvarine.exe", 1, {}}}, {}), "Release is missing Tolvarine.exe");
  EXPECT_EQ(failure({{u"tolvarine.EXE", 1, {}}}, {}), "");
}

}  // namespace
}  // namespace tolvarine::updater
