#include "engine/transaction_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <new>

#include "lists/release_path.h"
#include "support/engine_runs.h"

namespace tolvarine::updater {
namespace {

using enum TransactionPhase;
using enum CrashPoint;
using Tree = std::map<std::u16string, std::string>;

constexpr std::uint64_t kForwardSaves = 4 * kEntries + 3;

// Where a record stands: its phase, its three counters, and the entry that is announced, if any.
std::string Where(TransactionPhase phase, std::uint64_t backup, std::uint64_t apply,
                  std::uint64_t rollback = 0, std::optional<std::uint64_t> announced = {}) {
  std::string text = "phase " + std::to_string(static_cast<int>(phase)) + " at";
  for (const std::uint64_t count : {backup, apply, rollback}) text += " " + std::to_string(count);
  return announced ? text + ", announcing " + std::to_string(*announced) : text;
}

std::string WhereIs(const TransactionJournal& record) {
  const bool announced = record.intent != TransactionIntent::None;
  EXPECT_TRUE(!announced || static_cast<int>(record.intent) == static_cast<int>(record.phase));
  return Where(record.phase, record.backup, record.apply, record.rollback,
               announced ? std::optional(record.intent_entry) : std::nullopt);
}

TransactionPhase PhaseOf(const HookPoint& moment) {
  if (moment.point <= BackupEntryDone) return Backup;
  if (moment.point <= ApplyEntryDone) return Apply;
  return moment.point == ApplyFinished ? Committed : Rollback;
}

std::vector<HookPoint> EveryHookPoint() {
  std::vector<HookPoint> moments = {{ApplyFinished, kEntries}};
  for (int point = 0; point < static_cast<int>(ApplyFinished); ++point) {
    for (std::uint64_t entry = 0; entry < kEntries; ++entry) {
      const HookPoint moment{static_cast<CrashPoint>(point), entry};
      if (moment.point != ApplySourceVerified || entry > 1) moments.push_back(moment);
    }
  }
  return moments;
}

// Acts at one moment. Those of the rollback are reached through a failure of the last entry.
TransactionHook Reach(const HookPoint& moment, void (*act)()) {
  return [=](CrashPoint point, std::uint64_t entry) {
    At(moment, act)(point, entry);
    if (PhaseOf(moment) == Rollback)
      At({ApplyEntryDone, kApplication}, FailAsPlanned)(point, entry);
  };
}

// What the target holds when the entries of a range are new and the others old.
FileSet WithNew(const SimulatedUpdate& update, std::uint64_t first, std::uint64_t end) {
  FileSet files = update.plan.baseline;
  const std::vector<JournalEntry> entries = SavedRecord(update).entries;
  for (std::uint64_t i = first; i < end; ++i) {
    const Path path = PathFromUtf8(GenericUtf8Path(entries[i].path));
    const auto released = update.plan.release.find(path);
    files.erase(path);
    if (released != update.plan.release.end()) files.insert(*released);
  }
  return files;
}

void ExpectCrashedAt(const SimulatedUpdate& update, const HookPoint& moment) {
  const std::uint64_t i = moment.entry;
  const std::uint64_t worked = moment.point == ApplyEntryDone || moment.point == RollbackEntryDone;
  const std::map<TransactionPhase, std::pair<std::string, FileSet>> expected = {
      {Backup, {Where(Backup, i, 0, 0, i), update.plan.baseline}},
      {Apply,
       {Where(Apply, kEntries, i, 0, i), WithNew(update, 0, std::min(i + worked, kEntries))}},
      {Rollback,
       {Where(Rollback, kEntries, kApplication, i, i), WithNew(update, i + worked, kEntries)}},
      {Committed, {Where(Committed, kEntries, kEntries), update.Installed()}}};
  EXPECT_EQ(WhereIs(SavedRecord(update)), expected.at(PhaseOf(moment)).first);
  EXPECT_EQ(update.Target(), expected.at(PhaseOf(moment)).second);
}

// Runs again and again; the phases are those that the runs must end in, without a failure.
void ExpectRunsEndIn(const std::vector<TransactionPhase>& phases, SimulatedUpdate& update,
                     const Tree& original) {
  for (const TransactionPhase phase : phases) {
    const Ran ran = RunEngine(update);
    EXPECT_EQ(ran.status, phase);
    EXPECT_EQ(ran.error, "");
    EXPECT_EQ(ran.result.rollback, phase == Committed ? 0 : kEntries);
    EXPECT_TRUE(phase == Committed || update.computer.disk.Tree(update.target) == original);
  }
  EXPECT_EQ(update.Target(), update.Installed());
}

// Invariants 1, 3, 6 and 8: the state is that of the last save, and a new process goes on from it.
TEST(TransactionRunTest, CrashAtEveryMomentIsCarriedOn) {
  ForEachRow(EveryHookPoint(), [](const HookPoint& moment) {
    SimulatedUpdate update;
    const Tree original = update.computer.disk.Tree(update.target);
    EXPECT_THROW(RunEngine(update, Reach(moment, Crash)), SimulatedCrash);
    ExpectCrashedAt(update, moment);
    const bool back = PhaseOf(moment) == Rollback;
    ExpectRunsEndIn({back ? RolledBack : Committed, Committed}, update, original);
  });
}

// Invariants 6 and 7.
TEST(TransactionRunTest, FailureAtEveryMomentIsHandledByItsPhase) {
  ForEachRow(EveryHookPoint(), [](const HookPoint& moment) {
    SimulatedUpdate update;
    const Tree original = update.computer.disk.Tree(update.target);
    const Ran ran = RunEngine(update, Reach(moment, FailAsPlanned));
    const TransactionPhase phase = PhaseOf(moment);
    const bool back = phase == Rollback;
    EXPECT_EQ(ran.status, phase == Apply ? RolledBack : phase);
    EXPECT_EQ(ran.error, back ? "planned failure; rollback incomplete: planned failure" : kPlanned);
    EXPECT_EQ(ran.result.error, phase == Committed ? "" : ran.error);
    EXPECT_EQ(ran.result.entry_count, kEntries);
    EXPECT_EQ(ran.result.rollback, phase == Apply ? kEntries : back ? moment.entry : 0);
    EXPECT_EQ(SavedRecord(update).intent == TransactionIntent::None, !back);
    EXPECT_EQ(update.computer.disk.Tree(update.target) == original,
              phase == Backup || phase == Apply);
    ExpectRunsEndIn({back ? RolledBack : Committed, Committed}, update, original);
  });
}

// Invariants 2 to 5. State and target lie on two volumes, whose changes nothing else orders.
TEST(TransactionRunTest, SuccessMakesItsEffectsDurableInOrder) {
  UpdatePlan plan = TypicalPlan();
  plan.target_drive = u'D';
  SimulatedUpdate update(plan);
  // Each rename and removal: a save, a copy that is in place, one installed, one deleted.
  std::string effects;
  char16_t renamed_on = 0;
  update.computer.calls.before_call = [&](const CallRecord& call) {
    const bool forced =
        renamed_on == 0 || update.computer.disks.volume(renamed_on).unforced().empty();
    EXPECT_TRUE(forced) << "not written through: " << effects;
    renamed_on = call.call == Call::MoveFileExW ? call.path[kExtendedLengthPrefix.size()] : 0;
    const bool removes = call.call == Call::SetFileInformationByHandle;
    if (!removes && renamed_on == 0) return;
    const char renamed = call.path.ends_with(u".new") ? 's' : renamed_on == u'D' ? 'i' : 'c';
    effects.push_back(removes ? 'd' : renamed);
    for (const auto& volume : update.computer.disks.volumes) {
      EXPECT_TRUE(volume.UnflushedFiles().empty()) << "not flushed: " << Shown(call.path);
    }
  };
  EXPECT_EQ(RunEngine(update).status, Committed);
  // The plan and the copies, the way forward, and the end. Each entry is announced and counted.
  std::string expected = "s scs ss ss scs ss scs scs  s sds ss sis sis sis sis sis  s";
  std::erase(expected, ' ');
  EXPECT_EQ(effects, expected);
  EXPECT_EQ(SavedRecord(update).generation, kForwardSaves);
}

// Invariant 6: the handler goes by the phase in memory, which the failing save had just set.
TEST(TransactionRunTest, SaveThatFailsOnceIsHandledByThePhaseInMemory) {
  const std::pair<Call, const char*> failures[] = {
      {Call::MoveFileExW, "Access is denied."},
      {Call::FlushFileBuffers, "Access is denied."},
      {Call::Fwrite, "Could not write transaction journal"}};
  for (std::uint64_t k = 1; k <= kForwardSaves; ++k) {
    ForEachRow(failures, [k](const auto& failure) {
      SCOPED_TRACE("save " + std::to_string(k));
      SimulatedUpdate update;
      const Tree original = update.computer.disk.Tree(update.target);
      Inject(failure.first, u".new", k)(update);
      const Ran ran = RunEngine(update);
      const bool installed = k == kForwardSaves;  // And not known to be.
      const TransactionPhase failed = k < 2 * kEntries + 2 ? Backup : RolledBack;
      EXPECT_EQ(ran.status, installed ? Committed : failed);
      EXPECT_EQ(SavedRecord(update).phase, installed ? Apply : failed);
      EXPECT_EQ(ran.error, failure.second);
      EXPECT_EQ(update.computer.disk.Tree(update.target) == original, !installed);
      ExpectRunsEndIn({Committed}, update, original);
    });
  }
}

TEST(TransactionRunTest, SaveThatFailsInARollbackLeavesItToTheNextRun) {
  constexpr std::uint64_t kMark = 2 * kEntries + 4;  // The decision, after one announcement.
  constexpr std::uint64_t kLast = kMark + 2 * kEntries + 1;
  for (std::uint64_t k = kMark; k <= kLast; ++k) {
    for (const std::uint64_t times : {std::uint64_t{1}, kAlways}) {
      SCOPED_TRACE("save " + std::to_string(k) + ", " + std::to_string(times) + " times");
      SimulatedUpdate update;
      const Tree original = update.computer.disk.Tree(update.target);
      Inject(Call::MoveFileExW, u".new", k, times)(update);
      const Ran ran = RunEngine(update, At({ApplyEntryDone, 0}, FailAsPlanned));
      update.computer.calls.ClearFaults();
      EXPECT_EQ(ran.status, k == kLast ? RolledBack : Rollback);
      EXPECT_EQ(ran.error, "planned failure; rollback incomplete: Access is denied.");
      const TransactionPhase behind = k == kMark ? Apply : Rollback;  // Nothing more was saved.
      const TransactionPhase saved = times == 1 ? ran.status : behind;
      EXPECT_EQ(SavedRecord(update).phase, saved);
      ExpectRunsEndIn({saved == Rollback ? RolledBack : Committed, Committed}, update, original);
    }
  }
}

// --- What a run finds -----------------------------------------------------------------------

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
                                   {Backup, kAsIs, Committed, "", ""},
                                   {Backup, kDamaged, Backup, kMismatch, kMismatch},
                                   {Backup, kElsewhere, Backup, kWrongTarget, kWrongTarget},
                                   {Backup, kRestore, RolledBack, kCancelled, ""},
                                   {Apply, kAsIs, Committed, "", ""},
                                   {Apply, kDamaged, RolledBack, kMismatch, kMismatch},
                                   {Apply, kElsewhere, RolledBack, kWrongTarget, kWrongTarget},
                                   {Apply, kRestore, RolledBack, kByPolicy, ""},
                                   {Rollback, kAsIs, RolledBack, kPlanned, ""},
                                   {Rollback, kDamaged, RolledBack, kPlanned, kPlanned},
                                   {Rollback, kElsewhere, RolledBack, kPlanned, kPlanned},
                                   {Rollback, kRestore, RolledBack, kPlanned, ""},
                                   {Committed, kAsIs, Committed, "", ""},
                                   {Committed, kDamaged, Committed, "", kMismatch},
                                   {Committed, kElsewhere, Committed, "", kWrongTarget},
                                   {Committed, kRestore, Committed, "", ""},
                                   {RolledBack, kAsIs, Committed, "", ""},
                                   {RolledBack, kDamaged, RolledBack, kPlanned, kPlanned},
                                   {RolledBack, kElsewhere, RolledBack, kPlanned, kPlanned},
                                   {RolledBack, kRestore, RolledBack, kPlanned, ""}};

// Invariants 6 and 7. A journal that belongs elsewhere has the harsh outcome that the other target
// gets its baseline.
TEST(TransactionRunTest, RunGoesOnByWhatItFinds) {
  ForEachRow(kFoundRows, [](const FoundRow& row) {
    SimulatedUpdate update;
    const Path target = update.target;
    const Tree original = update.computer.disk.Tree(target);
    LeftIn(row.phase)(update);
    const Tree left = update.computer.disk.Tree(target);
    const FileSet transaction = update.Transaction();
    const bool elsewhere = row.found == kElsewhere;
    if (row.found == kDamaged) Remove(u"S\\empty.dat")(update);
    if (elsewhere) update.target = u"C:\\Other";
    const Ran ran = RunEngine(
        update, {},
        row.found == kRestore ? RecoveryPolicy::RestoreBaseline : RecoveryPolicy::ResumeForward);
    EXPECT_EQ(ran.status, row.status);
    EXPECT_EQ(ran.result.error, row.record_error);
    EXPECT_EQ(ran.error, row.error);
    if (elsewhere || row.status != Committed) {
      EXPECT_EQ(update.computer.disk.Tree(target), elsewhere ? left : original);
    } else {
      EXPECT_EQ(update.Target(), update.Installed());
    }
    EXPECT_EQ(update.computer.disk.Exists(u"C:\\Other\\readme.txt"),
              elsewhere && (row.phase == Apply || row.phase == Rollback));
    EXPECT_EQ(update.Transaction() == transaction, row.phase == row.status && row.phase != Backup);
  });
}

TEST(TransactionRunTest, RollbackFoundInTheJournalGetsOneMoreAttempt) {
  for (const bool fails_again : {false, true}) {
    SimulatedUpdate update;
    LeftIn(Rollback)(update);
    int attempts = 0;
    const Ran ran = RunEngine(update, At({RollbackEntryStarted, kReadme}, [&] {
                                if (++attempts == 1) throw std::runtime_error("first");
                                if (fails_again) throw std::runtime_error("second");
                              }));
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(ran.status, fails_again ? Rollback : RolledBack);
    EXPECT_EQ(ran.error, fails_again ? "first; rollback incomplete: second" : kPlanned);
    EXPECT_EQ(SavedRecord(update).error, ran.error);
  }
}

// --- Failures by place ----------------------------------------------------------------------

constexpr char kCorrupt[] =
    "Transaction artifacts exist, but both journal slots are missing or corrupt";
constexpr char kOverlap[] = "Update source, target, and transaction directories must not overlap";
constexpr char kOtherDeletions[] =
    "Authenticated managed deletion list does not match transaction journal";

TEST(TransactionRunTest, FailureBeforeARecordIsAdoptedLeavesTheTarget) {
  using U = SimulatedUpdate;
  const Act stray = Write(u"X\\journal.1.new", "half a record");
  const Act no_memory = [](U&) { throw std::bad_alloc(); };
  ExpectTrouble({
      {[](U& u) { u.source = u"no\\root"; }, None, "Invalid source path"},
      {Inject(Call::CreateFile2, u"release"), None, "Invalid source path"},
      {[](U& u) { u.target = u""; }, None, "Invalid target path"},
      {Inject(Call::CreateFile2, u"transaction"), None, "Invalid transaction path"},
      {Inject(Call::CreateDirectoryW, u"transaction"), None,
       "create_directories: Access is denied.: \"|X|\""},
      {stray, Corrupt, kCorrupt},
      {Write(u"X"), Corrupt, kCorrupt},
      {Inject(Call::GetFileAttributesExW, u"transaction"), Corrupt, kCorrupt},
      {Before(Call::FindFirstFileExW, u"transaction\\*", stray), Corrupt, kCorrupt},  // Later.
      {Both(stray, Before(Call::WfsOpen, u"journal.0", no_memory)), Corrupt, "std::bad_alloc"},
      {[](U& u) { u.target = u.source; }, None, kOverlap},
      {[](U& u) { u.target = u.source + u"\\lib"; }, None, kOverlap},
      {[](U& u) { u.source = u.target + u"\\lib"; }, None, kOverlap},
      {Both(Directory(u"T\\t"),
            [](U& u) { u.layout.transaction = u"d:/program files/TOLVARINE/t"; }),
       None, kOverlap},
      {[](U& u) { u.layout.transaction = u.source + u"\\t"; }, None, kOverlap},
      {[](U& u) { u.source = u.layout.transaction + u"\\s"; }, None, kOverlap},
      {[](U& u) { u.target = u.layout.transaction + u"\\t", u.arguments.source_inventory = {}; },
       None, kOverlap},
      {[](U& u) { u.arguments.source_inventory = {}; }, None,
       "Authenticated source inventory is missing"},
      {[](U& u) { u.arguments.managed_deletions = {u"README.TXT"}; }, None,
       "Authenticated managed deletion list overlaps the release inventory"},
      {Both(LeftIn(Apply), [](U& u) { u.arguments.managed_deletions.pop_back(); }), None,
       kOtherDeletions},
  });
}

// The state lies on C, the target on D. In the middle, there is room for the way back.
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
  ExpectTrouble(
      {{fill(u'C', 4), Backup, backup + incomplete + "Could not write transaction journal",
        HookPoint{BackupEntryStarted, 0}},
       {fill(u'D', 1800), RolledBack, apply, HookPoint{ApplyEntryStarted, 0}},
       {fill(u'D', 30), Rollback, apply + incomplete + backup, HookPoint{ApplyEntryStarted, 0}}});
}

// The record's own error comes before that of the verification.
TEST(TransactionRunTest, RolledBackTransactionGoesForwardOnlyFromASoundBaseline) {
  const Act cancel = [](SimulatedUpdate& u) { RunEngine(u, {}, RecoveryPolicy::RestoreBaseline); };
  ExpectTrouble(
      {{cancel, RolledBack, kCancelled},  // No copy was made.
       {Both(LeftIn(RolledBack), Write(u"B\\lib\\core.dll", "bad")), RolledBack, kPlanned}});
}

}  // namespace
}  // namespace tolvarine::updater
