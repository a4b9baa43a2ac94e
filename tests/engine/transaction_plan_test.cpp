#include "engine/transaction_plan.h"

#include <gtest/gtest.h>

#include "journal/journal_text.h"
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

// The entries with their kind, path, size and baseline, then the missing directories.
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

TEST(TransactionPlanTest, MissingDirectoriesAreListedOnceAndDeepestFirst) {
  UpdatePlan plan;
  plan.baseline = {{u"lib/present.txt", ""}};
  plan.release = {{u"a/b/c.txt", ""}, {u"a/d.txt", ""}, {u"lib/Z/q.txt", ""}, {u"x/y/z/w", ""}};
  plan.release[u"TOLVARINE.EXE"] = "in any case";
  const std::string shown = Shown(PlanOf(SimulatedUpdate(plan)));
  EXPECT_TRUE(shown.ends_with("EXE 11\nx\\y\\z\na\\b\nlib\\Z\nx\\y\na\nx\n")) << shown;
}

// "B" comes before "a" in bytes, and after it by comparison keys, in which the inventory is sorted.
// The spellings "A" and "a" are then not neighbours, and the journal's reader refuses the record.
TEST(TransactionPlanTest, DirectoriesOfOneDepthAreInTheOrderOfTheirBytes) {
  UpdatePlan plan;
  plan.release = {{u"Tolvarine.exe", ""}, {u"a/x.txt", ""}, {u"B/y.txt", ""}};
  SimulatedUpdate update(plan);
  EXPECT_TRUE(Shown(PlanOf(update)).ends_with("\nB\na\n"));
  update.arguments.source_inventory.push_back({u"A/z.txt", 0, std::string(64, '0')});
  const TransactionJournal record = PlanOf(update);
  EXPECT_TRUE(Shown(record).ends_with("\nA\nB\na\n"));
  EXPECT_FALSE(ParseJournal(SerializeJournal(record)));
}

struct TargetCase {
  const char* name;
  Change change;
  const char* error;
};

TEST(TransactionPlanTest, TargetThatCannotBeUpdatedIsRefused) {
  constexpr char kNoFile[] = "Update target entry is not a regular file";
  constexpr char kNoDirectory[] = "Update target parent is not a regular directory";
  constexpr char kDenied[] = "Access is denied.";
  constexpr Call kQuery = Call::GetFileAttributesExW;
  const TargetCase cases[] = {
      {"directory", Directory(u"T\\readme.txt"), kNoFile},
      {"link", Link(u"T\\readme.txt", u"lib\\core.dll"), kNoFile},

      {"parent is a junction", Junction(u"T\\plug", u"T\\lib"), kNoDirectory},

      {"query of a deletion", Inject(kQuery, u"there.txt"), kDenied},
      {"query of a parent", Inject(kQuery, u"plug\\ins"), kDenied},

      {"code 267 is not absence", Inject(kQuery, u"core.dll", 1, 1, 267),
       "The directory name is invalid."},
      {"code 53 is absence", Inject(kQuery, u"readme.txt", 1, 1, 53), ""},
      {"open", Inject(Call::WfsOpen, u"readme.txt"),
       "Could not open file for hashing: |T\\readme.txt|"}};
  ForEachCase(cases, [](const TargetCase& each) {
    SimulatedUpdate update;
    each.change(update);
    EXPECT_EQ(FailureOf([&] { static_cast<void>(PlanOf(update)); }), ResolveIn(update, each.error));
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
