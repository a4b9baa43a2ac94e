#include "engine/finalization.h"

#include <gtest/gtest.h>

#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;

TransactionFinalizeRequest Markers(const SimulatedUpdate& update) {
  return {
      update.layout.transaction, update.layout.pending_marker, update.layout.completed_marker, {}};
}

struct FinalizeCase {
  const char* name;
  TransactionPhase phase;  // Of the journal.
  Change change;
  std::uint32_t result;
  const char* error;
  bool transaction_stays;
};

std::vector<FinalizeCase> FinalizeCases() {
  const Change final_already = Write(u"W\\completed.json", "earlier");
  constexpr Call kQuery = Call::GetFileAttributesExW;
  static constexpr char kNotInstalled[] = "Update payload is not durably installed";
  static constexpr char kNoMarker[] = "Pending update marker is missing";
  return {
      {"installed", Committed, NoChange, kMarkerMoved, "", false},
      {"final already", Apply, final_already, kAlreadyFinal, "", false},

      {"final already, no journal", None, Both(final_already, Write(u"X\\stray")), kAlreadyFinal,
       "", false},
      {"query of the completed marker", Committed, Inject(kQuery, u"completed.json"),
       kFinalizeFailed, "status: Access is denied.: \"|W\\completed.json|\"", true},

      {"no journal", None, NoChange, kFinalizeFailed, kNotInstalled, false},
      {"another phase", Apply, NoChange, kFinalizeFailed, kNotInstalled, true},
      {"no pending marker", Committed, Remove(u"W\\pending.json"), kFinalizeFailed, kNoMarker,
       true},

      {"removal", Committed, Hold(u"X\\journal.1"), kMarkerMoved,
       "Update marker finalized; transaction cleanup is deferred: The process cannot access the "
       "file because it is being used by another process.",
       true}};
}

TEST(FinalizationTest, MarkerMovesOnceAndOnlyForAnInstalledUpdate) {
  ForEachCase(FinalizeCases(), [](const FinalizeCase& each) {
    SimulatedUpdate update;
    Both(LeftIn(each.phase), each.change)(update);
    const auto pending = update.computer.disk.ReadFile(update.layout.pending_marker);
    const bool moves = each.result == kMarkerMoved;
    std::string error = "left";
    EXPECT_EQ(FinalizeUpdateMarkers(Markers(update), &error), each.result);
    EXPECT_EQ(error, ResolveIn(update, each.error));
    EXPECT_EQ(update.computer.disk.Exists(update.layout.transaction), each.transaction_stays);
    EXPECT_EQ(update.computer.disk.ReadFile(update.layout.pending_marker),
              moves ? std::nullopt : pending);
    EXPECT_EQ(
        update.computer.disk.ReadFile(update.layout.completed_marker) == simulated::kPendingContent,
        moves);
  });
}

// Committed in the slot that an enumeration returns first, and an older phase in the other.
void LeaveCommittedInTheFirstSlot(SimulatedUpdate& update) {
  LeftIn(Committed)(update);
  TransactionJournal record = SavedRecord(update);
  for (const TransactionPhase phase : {Apply, Apply, Committed}) {
    record.phase = phase;
    SaveJournal(update.layout.transaction, record);
  }
  ASSERT_EQ(record.generation % 2, 0u);
}

// A removal that is interrupted anywhere never leaves only the older slot, from which the next run
// would need a backup that is removed.
TEST(FinalizationTest, CommittedSlotIsRemovedLast) {
  for (const bool final_already : {false, true}) {
    SCOPED_TRACE(final_already ? "final already" : "marker moves");
    TransactionPhase phase = Committed;
    for (std::uint64_t removals = 0; phase == Committed; ++removals) {
      SimulatedUpdate update;
      LeaveCommittedInTheFirstSlot(update);
      if (final_already) Write(u"W\\completed.json")(update);
      Inject(Call::SetFileInformationByHandle, u"", removals + 1, kAlways)(update);
      EXPECT_EQ(FinalizeUpdateMarkers(Markers(update), nullptr),
                final_already ? kAlreadyFinal : kMarkerMoved);
      const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
      EXPECT_NE(loaded.state, JournalLoadState::Corrupt) << removals;
      phase = loaded.journal ? loaded.journal->phase : None;
      ASSERT_LT(removals, 100u);
    }
    EXPECT_EQ(phase, None);
  }
}

TEST(FinalizationTest, SimulatedCrashPassesThroughAndAFailureDoesNot) {
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
