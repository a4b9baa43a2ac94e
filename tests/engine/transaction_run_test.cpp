#include "engine/transaction_run.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <new>

#include "journal/journal_text.h"
#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;
using enum CrashPoint;
using Tree = std::map<std::u16string, std::string>;

constexpr std::uint64_t kForwardSaves = 4 * kEntries + 3;

// The record of the save before the last one, in the slot that the next save replaces.
TransactionJournal PreviousRecord(const SimulatedUpdate& update, std::uint64_t last_generation) {
  const Path slot = JournalSlot(update.layout.transaction, last_generation - 1);
  return ParseJournal(update.computer.disk.ReadFile(slot).value()).value();
}

std::uint64_t CounterOf(const TransactionJournal& record) {
  if (record.phase == Backup) return record.backup;
  return record.phase == Apply ? record.apply : record.rollback;
}

// Each hook point finds its entry announced by the last save, and the save before that, which
// counted the entry before it, without an intent.
void ExpectAnnounced(const SimulatedUpdate& update, CrashPoint point, std::uint64_t entry) {
  SCOPED_TRACE("point " + std::to_string(static_cast<int>(point)) + " of entry " +
               std::to_string(entry));
  const TransactionPhase phase = point <= BackupEntryDone  ? Backup
                                 : point <= ApplyEntryDone ? Apply
                                                           : Rollback;
  const TransactionJournal saved = SavedRecord(update);
  EXPECT_EQ(saved.phase, phase);
  EXPECT_EQ(static_cast<int>(saved.intent), static_cast<int>(phase));
  EXPECT_EQ(saved.intent_entry, entry);
  EXPECT_EQ(CounterOf(saved), entry);
  const TransactionJournal counted = PreviousRecord(update, saved.generation);
  EXPECT_EQ(counted.intent, TransactionIntent::None);
  // The save that begins a rollback is the only one that keeps the index.
  const bool begins_rollback = phase == Rollback && entry == 0;
  EXPECT_EQ(counted.intent_entry, begins_rollback ? kApplication : 0);
}

// Invariant 3.
TEST(TransactionRunTest, EveryEntryIsAnnouncedAndCounted) {
  SimulatedUpdate update;
  std::uint64_t points = 0;
  const auto hook = [&](CrashPoint point, std::uint64_t entry) {
    ++points;
    if (point != ApplyFinished) return ExpectAnnounced(update, point, entry);
    EXPECT_EQ(entry, kEntries);
    EXPECT_EQ(SavedRecord(update).phase, Committed);
  };
  EXPECT_EQ(RunEngine(update, hook).status, Committed);
  EXPECT_EQ(points, 4 * kEntries + 5 + 1);
  EXPECT_EQ(SavedRecord(update).generation, kForwardSaves);

  SimulatedUpdate failing;
  points = 0;
  const auto failing_hook = [&](CrashPoint point, std::uint64_t entry) {
    ++points;
    ExpectAnnounced(failing, point, entry);
    if (point == ApplyEntryDone && entry == kApplication) FailAsPlanned();
  };
  EXPECT_EQ(RunEngine(failing, failing_hook).status, RolledBack);
  EXPECT_EQ(points, 6 * kEntries + 5);
}

// --- Failures of a step --------------------------------------------------------------------------

struct StepFailure {
  const char* name;
  HookPoint point;  // That fails; for one of the rollback the last entry of Apply fails before.
  TransactionPhase status;
  std::string error;         // For the caller.
  std::string record_error;  // In the record.
  TransactionPhase next_status;
  std::string next_record_error;  // After the next run, which nothing fails.
};

// Invariants 6 and 7. A failure that a backup has recorded stays in the record, also in Committed.
TEST(TransactionRunTest, FailureOfAStepIsHandledByItsPhase) {
  const std::string twice = "planned failure; rollback incomplete: planned failure";
  const StepFailure cases[] = {
      {"backup", {BackupEntryDone, 3}, Backup, kPlanned, kPlanned, Committed, kPlanned},
      {"apply", {ApplySourceVerified, kReadme}, RolledBack, kPlanned, kPlanned, Committed, ""},
      {"rollback", {RollbackEntryStarted, 3}, Rollback, twice, twice, RolledBack, twice},
      {"after the commit", {ApplyFinished, kEntries}, Committed, kPlanned, "", Committed, ""}};
  ForEachCase(cases, [](const StepFailure& each) {
    SimulatedUpdate update;
    const Tree original = update.computer.disk.Tree(update.target);
    const EngineRun run = RunEngine(update, [&](CrashPoint point, std::uint64_t entry) {
      const HookPoint at{point, entry};
      const bool begins_rollback = each.status == Rollback && at == HookPoint{ApplyEntryDone, 6};
      if (at == each.point || begins_rollback) FailAsPlanned();
    });
    EXPECT_EQ(run.status, each.status);
    EXPECT_EQ(run.error, each.error);
    EXPECT_EQ(run.result.error, each.record_error);
    EXPECT_EQ(run.result.entry_count, kEntries);
    EXPECT_EQ(SavedRecord(update).error, each.record_error);
    EXPECT_EQ(update.computer.disk.Tree(update.target) == original,
              each.status == Backup || each.status == RolledBack);
    const EngineRun next = RunEngine(update);
    EXPECT_EQ(next.status, each.next_status);
    EXPECT_EQ(next.error, "");
    EXPECT_EQ(next.result.error, each.next_record_error);
    if (each.next_status == Committed) {
      EXPECT_EQ(update.Target(), update.Installed());
    }
  });
}

// Invariant 6: the handler uses the phase in memory, which the failing save had just set.
TEST(TransactionRunTest, FailingSaveIsHandledByThePhaseInMemory) {
  for (std::uint64_t k = 1; k <= kForwardSaves; ++k) {
    SCOPED_TRACE("save " + std::to_string(k));
    SimulatedUpdate update;
    const Tree original = update.computer.disk.Tree(update.target);
    Inject(Call::MoveFileExW, u".new", k)(update);
    const EngineRun run = RunEngine(update);
    const bool installed = k == kForwardSaves;  // The disk does not say so.
    const TransactionPhase failed = k < 2 * kEntries + 2 ? Backup : RolledBack;
    EXPECT_EQ(run.status, installed ? Committed : failed);
    EXPECT_EQ(SavedRecord(update).phase, installed ? Apply : failed);
    EXPECT_EQ(run.error, "Access is denied.");
    EXPECT_EQ(update.computer.disk.Tree(update.target) == original, !installed);
    EXPECT_EQ(RunEngine(update).status, Committed);
    EXPECT_EQ(update.Target(), update.Installed());
  }
}

// --- What a run finds ----------------------------------------------------------------------------

enum Found { kAsIs, kDamaged, kElsewhere, kRestore };  // kDamaged: the release.

constexpr char kCancelled[] = "Installation cancelled before target mutation";
constexpr char kByPolicy[] = "Recovery policy requested baseline restoration";
constexpr char kMismatch[] = "Release source tree does not exactly match authenticated inventory";
constexpr char kWrongTarget[] = "Transaction belongs to a different installation target";

struct FoundRow {
  TransactionPhase phase;  // That an earlier process left.
  Found found;
  TransactionPhase status;
  const char* record_error;
  const char* error;
};

constexpr FoundRow kFoundRows[] = {{None, kAsIs, Committed, "", ""},
                                   {None, kDamaged, None, "", kMismatch},
                                   {None, kRestore, RolledBack, kCancelled, ""},
                                   {Backup, kDamaged, Backup, kMismatch, kMismatch},
                                   {Backup, kElsewhere, Backup, kWrongTarget, kWrongTarget},
                                   {Backup, kRestore, RolledBack, kCancelled, ""},
                                   {Apply, kAsIs, Committed, "", ""},
                                   {Apply, kDamaged, RolledBack, kMismatch, kMismatch},
                                   {Apply, kElsewhere, RolledBack, kWrongTarget, kWrongTarget},
                                   {Apply, kRestore, RolledBack, kByPolicy, ""},
                                   {Rollback, kAsIs, RolledBack, kPlanned, ""},
                                   {Rollback, kDamaged, RolledBack, kPlanned, kPlanned},
                                   {Committed, kDamaged, Committed, "", kMismatch},
                                   {Committed, kElsewhere, Committed, "", kWrongTarget},
                                   {Committed, kRestore, Committed, "", ""},
                                   {RolledBack, kAsIs, Committed, "", ""},
                                   {RolledBack, kDamaged, RolledBack, kPlanned, kPlanned},
                                   {RolledBack, kRestore, RolledBack, kPlanned, ""}};

// Invariants 6 and 7. A journal of another target has a harsh outcome: the entries' baseline is
// restored into the target of the request.
TEST(TransactionRunTest, RunContinuesByWhatItFinds) {
  for (const FoundRow& row : kFoundRows) {
    SCOPED_TRACE("found phase " + std::to_string(static_cast<int>(row.phase)) + ", circumstance " +
                 std::to_string(row.found));
    SimulatedUpdate update;
    const Path target = update.target;
    const Tree original = update.computer.disk.Tree(target);
    LeftIn(row.phase)(update);
    const Tree left = update.computer.disk.Tree(target);
    const FileSet transaction = update.Transaction();
    const bool elsewhere = row.found == kElsewhere;
    if (row.found == kDamaged) Remove(u"S\\empty.dat")(update);
    if (elsewhere) update.target = u"C:\\Other";
    const EngineRun run = RunEngine(
        update, {},
        row.found == kRestore ? RecoveryPolicy::RestoreBaseline : RecoveryPolicy::ResumeForward);
    EXPECT_EQ(run.status, row.status);
    EXPECT_EQ(run.result.error, row.record_error);
    EXPECT_EQ(run.error, row.error);
    if (elsewhere || row.status != Committed) {
      EXPECT_EQ(update.computer.disk.Tree(target), elsewhere ? left : original);
    } else {
      EXPECT_EQ(update.Target(), update.Installed());
    }
    EXPECT_EQ(update.computer.disk.Exists(u"C:\\Other\\readme.txt"),
              elsewhere && (row.phase == Apply || row.phase == Rollback));
    EXPECT_EQ(update.Transaction() == transaction, row.phase == row.status && row.phase != Backup);
  }
}

TEST(TransactionRunTest, RollbackFoundInTheJournalGetsOneMoreAttempt) {
  for (const bool fails_again : {false, true}) {
    SimulatedUpdate update;
    LeftIn(Rollback)(update);
    int attempts = 0;
    const EngineRun run = RunEngine(update, At({RollbackEntryStarted, kReadme}, [&] {
                                      if (++attempts == 1) throw std::runtime_error("first");
                                      if (fails_again) throw std::runtime_error("second");
                                    }));
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(run.status, fails_again ? Rollback : RolledBack);
    EXPECT_EQ(run.error, fails_again ? "first; rollback incomplete: second" : kPlanned);
    EXPECT_EQ(SavedRecord(update).error, run.error);
  }
}

// --- Failures by their place ---------------------------------------------------------------------

TEST(TransactionRunTest, FailureBeforeARecordIsAdoptedLeavesTheTarget) {
  using U = SimulatedUpdate;
  const Change stray = Write(u"X\\journal.1.new", "half a record");
  const Change no_memory = [](U&) { throw std::bad_alloc(); };
  ExpectFailures({

      {"transaction directory cannot be resolved", Inject(Call::CreateFile2, u"transaction"), None,
       "Invalid transaction path"},

      {"corrupt in the second load", Before(Call::FindFirstFileExW, u"transaction\\*", stray),
       Corrupt, kJournalCorruptText},
      {"no memory in a load", Both(stray, Before(Call::WfsOpen, u"journal.0", no_memory)), Corrupt,
       "std::bad_alloc"},

      {"empty inventory", [](U& u) { u.arguments.source_inventory = {}; }, None,
       "Authenticated source inventory is missing"},
      {"deletion of a release file", [](U& u) { u.arguments.managed_deletions = {u"README.TXT"}; },
       None, "Authenticated managed deletion list overlaps the release inventory"},
      {"lists of another update",
       Both(LeftIn(Apply), [](U& u) { u.arguments.managed_deletions.pop_back(); }), None,
       "Authenticated managed deletion list does not match transaction journal"},
  });
}

TEST(TransactionRunTest, OverlappingDirectoriesAreRefusedBeforeTheListsAreRead) {
  const Path a = u"C:\\a";
  const Path b = u"C:\\b";
  const Path inner = u"c:/A/inner";
  const std::array<Path, 3> overlaps[] = {{a, a, b},     {a, inner, b}, {inner, a, b},
                                          {b, a, inner}, {b, inner, a}, {a, b, inner},
                                          {inner, b, a}};
  for (const auto& [source, target, transaction] : overlaps) {
    SimulatedUpdate update;
    for (const Path& path : {a, b}) update.computer.disk.MakeDirectory(path);
    update.source = source;
    update.target = target;
    update.layout.transaction = transaction;
    update.arguments.source_inventory = {};
    EXPECT_EQ(RunEngine(update).error,
              "Update source, target, and transaction directories must not overlap")
        << Shown(source + u" " + target + u" " + transaction);
  }
}

// The state is on C, the target on D. In the second case there is room for the rollback.
TEST(TransactionRunTest, FullDiskIsAFailureOfItsPhase) {
  const auto fill = [](char16_t drive, std::uint64_t free) {
    return [=](SimulatedUpdate& update) {
      simulated::Volume& volume = update.computer.disks.volume(drive);
      volume.capacity -= volume.FreeBytes() - free;
    };
  };
  const std::string full = ": There is not enough space on the disk.";
  const std::string backup = "Could not copy backup or restore temporary" + full;
  const std::string apply = "Could not copy locked release source" + full;
  const std::string incomplete = "; rollback incomplete: ";
  ExpectFailures({{"backup", fill(u'C', 4), Backup,
                   backup + incomplete + "Could not write transaction journal",
                   HookPoint{BackupEntryStarted, 0}},
                  {"apply", fill(u'D', 1800), RolledBack, apply, HookPoint{ApplyEntryStarted, 0}},
                  {"rollback", fill(u'D', 30), Rollback, apply + incomplete + backup,
                   HookPoint{ApplyEntryStarted, 0}}});
}

// The caller gets the record's own error, not that of the verification.
TEST(TransactionRunTest, RolledBackTransactionIsAppliedOnlyFromAVerifiedBaseline) {
  const Change cancel = [](SimulatedUpdate& u) {
    RunEngine(u, {}, RecoveryPolicy::RestoreBaseline);
  };
  ExpectFailures({{"cancelled before a copy was made", cancel, RolledBack, kCancelled},
                  {"damaged copy", Both(LeftIn(RolledBack), Write(u"B\\lib\\core.dll", "bad")),
                   RolledBack, kPlanned}});
}

}  // namespace
}  // namespace tolvarine::updater
