#include "engine/cleanup.h"

#include "engine/finalization.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

constexpr char kCorrupt[] =
    "Transaction artifacts exist, but both journal slots are missing or corrupt";

TEST(CleanupTest, LeftoversOfTheWayForwardAreRemoved) {
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

TEST(CleanupTest, CleanupStopsWithoutRemovingMore) {
  const Act corrupt = Both(Both(Remove(u"X\\journal.0"), Remove(u"X\\journal.1")), Write(u"X\\x"));
  const Act way_out = Both(Write(u"C:\\State\\ins\\new.dll.tolvarine-update-new"),
                           Junction(u"T\\plug", u"C:\\State"));
  constexpr char kNotRolledBack[] = "Cleanup requires a completed rollback";
  const std::pair<Act, const char*> rows[] = {
      {Nothing, kNotRolledBack},
      {LeftIn(Committed), kNotRolledBack},
      {Both(LeftIn(RolledBack), corrupt), kCorrupt},
      {Both(LeftIn(RolledBack), way_out), "target temporary path escapes its root"}};
  ForEachRow(rows, [](const auto& row) {
    SimulatedUpdate update;
    Both(row.first, Write(u"T\\readme.txt.tolvarine-update-new"))(update);
    const auto disk = update.computer.disk.Tree(u"C:\\");
    std::string error;
    EXPECT_FALSE(CleanupRolledBack(update.Request(), &error));
    EXPECT_EQ(error, row.second);
    EXPECT_EQ(update.computer.disk.Tree(u"C:\\"), disk);
  });
}

// --- Finalization ---------------------------------------------------------------------------

TransactionFinalizeRequest Markers(const SimulatedUpdate& update) {
  return {
      update.layout.transaction, update.layout.pending_marker, update.layout.completed_marker, {}};
}

struct FinalizeRow {
  TransactionPhase phase;  // In which the journal stands.
  Act act;
  std::uint32_t result;
  const char* error;
  bool transaction_stays;
};

TEST(CleanupTest, MarkerMovesOnceAndOnlyForAnInstalledUpdate) {
  const Act final_already = Write(u"W\\completed.json", "earlier");
  constexpr Call kQuery = Call::GetFileAttributesExW;
  constexpr char kNotInstalled[] = "Update payload is not durably installed";
  constexpr char kNoMarker[] = "Pending update marker is missing";
  const FinalizeRow rows[] = {
      {Committed, Nothing, kMarkerMoved, "", false},
      {Committed, final_already, kAlreadyFinal, "", false},
      {Apply, final_already, kAlreadyFinal, "", false},
      {Apply, Both(final_already, Hold(u"X\\journal.0")), kAlreadyFinal, "", true},
      {Committed, Inject(kQuery, u"completed.json"), kFinalizeFailed,
       "status: Access is denied.: \"|W\\completed.json|\"", true},
      {Committed, Inject(kQuery, u"pending.json"), kFinalizeFailed,
       "status: Access is denied.: \"|W\\pending.json|\"", true},
      {Committed, Inject(kQuery, u"transaction"), kFinalizeFailed, kCorrupt, true},
      {None, Nothing, kFinalizeFailed, kNotInstalled, false},
      {Apply, Nothing, kFinalizeFailed, kNotInstalled, true},
      {Committed, Remove(u"W\\pending.json"), kFinalizeFailed, kNoMarker, true},
      {Committed, Directory(u"W\\pending.json"), kFinalizeFailed, kNoMarker, true},
      {Committed, Inject(Call::CreateDirectoryW, Path(simulated::kUpdateId), 1, kAlways),
       kFinalizeFailed, "create_directories: Access is denied.: \"|W|\"", true},
      {Committed, Directory(u"W\\completed.json"), kFinalizeFailed, "Access is denied.", true},
      {Committed, Inject(Call::MoveFileExW, u"pending.json"), kFinalizeFailed, "Access is denied.",
       true},
      {Committed, Hold(u"X\\journal.1"), kMarkerMoved,
       "Update marker finalized; transaction cleanup is deferred: The process cannot access the "
       "file because it is being used by another process.",
       true}};
  ForEachRow(rows, [](const FinalizeRow& row) {
    SimulatedUpdate update;
    Both(LeftIn(row.phase), row.act)(update);
    const auto pending = update.computer.disk.ReadFile(update.layout.pending_marker);
    const bool moves = row.result == kMarkerMoved;
    std::string error = "left";
    EXPECT_EQ(FinalizeUpdateMarkers(Markers(update), &error), row.result);
    EXPECT_EQ(error, Text(update, row.error));
    EXPECT_EQ(update.computer.disk.Exists(update.layout.transaction), row.transaction_stays);
    EXPECT_EQ(update.computer.disk.ReadFile(update.layout.pending_marker),
              moves ? std::nullopt : pending);
    EXPECT_EQ(
        update.computer.disk.ReadFile(update.layout.completed_marker) == simulated::kPendingContent,
        moves);
  });
}

// Committed in the slot that an enumeration gives first, and an older phase in the other.
void CommittedInTheFirstSlot(SimulatedUpdate& update) {
  LeftIn(Committed)(update);
  TransactionJournal record = SavedRecord(update);
  for (const TransactionPhase phase : {Apply, Apply, Committed}) {
    record.phase = phase;
    SaveJournal(update.layout.transaction, record);
  }
  ASSERT_EQ(record.generation % 2, 0u);
}

// A removal that is cut short anywhere leads no later run back to a backup that is gone.
TEST(CleanupTest, SlotThatSaysCommittedGoesLast) {
  TransactionPhase phase = Committed;
  for (std::uint64_t removals = 0; phase == Committed; ++removals) {
    SimulatedUpdate update;
    CommittedInTheFirstSlot(update);
    Inject(Call::SetFileInformationByHandle, u"", removals + 1, kAlways)(update);
    EXPECT_EQ(FinalizeUpdateMarkers(Markers(update), nullptr), kMarkerMoved);
    const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
    EXPECT_NE(loaded.state, JournalLoadState::Corrupt) << removals;
    phase = loaded.journal ? loaded.journal->phase : None;
    ASSERT_LT(removals, 100u);
  }
  EXPECT_EQ(phase, None);
}

// Of the two kinds of exception, only a crash is none of the finalization's own failures.
TEST(CleanupTest, SimulatedCrashLeavesTheFinalization) {
  SimulatedUpdate update;
  LeftIn(Committed)(update);
  TransactionFinalizeRequest request = Markers(update);
  request.before_marker_move = Crash;
  EXPECT_THROW(static_cast<void>(FinalizeUpdateMarkers(request, nullptr)), SimulatedCrash);
  request.before_marker_move = FailAsPlanned;
  EXPECT_EQ(FinalizeUpdateMarkers(request, nullptr), kFinalizeFailed);
  EXPECT_TRUE(update.computer.disk.Exists(update.layout.pending_marker));
}

}  // namespace
}  // namespace tolvarine::updater
