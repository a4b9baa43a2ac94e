#include <algorithm>
#include <optional>

#include "crash_lab/scenario.h"
#include "engine/transaction_run.h"
#include "journal/journal_store.h"
#include "journal/journal_text.h"
#include "text/decimal.h"
#include "text/fnv1a.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Call;
using simulated::Fault;
using simulated::kAlways;
using simulated::SimulatedUpdate;
using simulated::UpdatePlan;

constexpr std::uint32_t kAccessDenied = 5;

// Few files, one of each kind: changed, added in a new directory, deleted, the executable, a
// bystander.
UpdatePlan SmallPlan() {
  UpdatePlan plan;
  plan.baseline = {{u"Tolvarine.exe", "old executable"},
                   {u"lib/core.dll", "old core"},
                   {u"lib/old.dll", "to be deleted"},
                   {u"settings.ini", "the person's own"}};
  plan.release = {{u"Tolvarine.exe", "new executable"},
                  {u"lib/core.dll", "new core, which is longer"},
                  {u"a/b/new.dll", "brought by the release"}};
  plan.deletions = {u"lib/old.dll"};
  return plan;
}

UpdatePlan EmptyTargetPlan() {
  UpdatePlan plan = SmallPlan();
  plan.baseline.clear();
  plan.deletions.clear();
  return plan;
}

UpdatePlan MissingDeletionsPlan() {
  UpdatePlan plan = SmallPlan();
  plan.deletions = {u"lib/old.dll", u"never/there.txt", u"gone.txt"};
  return plan;
}

UpdatePlan OtherCasePlan() {
  UpdatePlan plan = SmallPlan();
  plan.baseline.erase(u"Tolvarine.exe");
  plan.baseline[u"TOLVARINE.EXE"] = "old executable";
  return plan;
}

UpdatePlan WithoutDeletions() {
  UpdatePlan plan = SmallPlan();
  plan.deletions.clear();
  return plan;
}

// Longer than the blocks in which files are read and written.
constexpr std::size_t kSeveralBlocks = 70000;

UpdatePlan SeveralBlocksPlan() {
  UpdatePlan plan = SmallPlan();
  plan.baseline[u"lib/core.dll"] = std::string(kSeveralBlocks, 'o') + "the old end";
  plan.release[u"lib/core.dll"] = std::string(kSeveralBlocks, 'n') + "the new end";
  return plan;
}

// The rename that puts a file of the release in its place fails once.
Fault RefusedRename(std::u16string_view file) {
  return {.call = Call::MoveFileExW,
          .first = 1,
          .times = 1,
          .code = kAccessDenied,
          .path_suffix = u"\\Program Files\\Tolvarine\\" + Path(file) + u".tolvarine-update-new"};
}

// Runs the engine until the hook is called at this point, and leaves the disk as it is when the
// process ends there.
void RunUntil(SimulatedUpdate& update, CrashPoint point, std::uint64_t entry) {
  TransactionRequest request = update.Request();
  request.crash_hook = [=](CrashPoint reached, std::uint64_t index) {
    if (reached == point && index == entry) throw SimulatedCrash{};
  };
  try {
    static_cast<void>(RunTransaction(request, nullptr));
  } catch (const SimulatedCrash&) {
    update.computer.Restart();
  }
}

std::function<void(SimulatedUpdate&)> Until(CrashPoint point, std::uint64_t entry) {
  return [=](SimulatedUpdate& update) { RunUntil(update, point, entry); };
}

// Leaves a rollback that stopped at its second entry.
void UntilHalfRolledBack(SimulatedUpdate& update) {
  update.computer.calls.Inject(RefusedRename(u"Tolvarine.exe"));
  RunUntil(update, CrashPoint::RollbackEntryStarted, 1);
}

void UntilRolledBack(SimulatedUpdate& update) {
  update.computer.calls.Inject(RefusedRename(u"Tolvarine.exe"));
  static_cast<void>(RunTransaction(update.Request(), nullptr));
  update.computer.Restart();
}

void UntilCommitted(SimulatedUpdate& update) {
  static_cast<void>(RunTransaction(update.Request(), nullptr));
  update.computer.Restart();
}

// The text of a record under the older magic, whose entries have no kind.
std::string OlderText(const TransactionJournal& journal) {
  std::string body = FormatJournalBody(journal);
  body.replace(0, kJournalMagic.size(), kJournalMagicVersion1);
  for (std::size_t at = body.find("\nentry "); at != std::string::npos;
       at = body.find("\nentry ", at + 1)) {
    const std::size_t end = body.find('\n', at + 1);
    body.erase(end - 2, 2);
  }
  const std::uint64_t checksum = Fnv1a64(body);
  body.append("checksum ");
  AppendDecimal(body, checksum);
  return body + "\n";
}

// Stops in the middle of applying and rewrites both slots.
void UntilRewrittenJournal(SimulatedUpdate& update,
                           const std::function<std::string(TransactionJournal)>& text) {
  RunUntil(update, CrashPoint::ApplyEntryDone, 1);
  for (const char16_t* slot : {u"journal.0", u"journal.1"}) {
    const Path path = JoinPath(update.layout.transaction, slot);
    const std::optional<TransactionJournal> journal =
        ParseJournal(*update.computer.disk.ReadFile(path));
    update.computer.disk.WriteFile(path, text(*journal));
  }
}

// As an older updater leaves it.
void UntilOlderJournal(SimulatedUpdate& update) { UntilRewrittenJournal(update, OlderText); }

// With the text of an earlier failure, which stays in the journal while entries are applied.
void UntilLongJournal(SimulatedUpdate& update) {
  UntilRewrittenJournal(update, [](TransactionJournal journal) {
    journal.error = std::string(kSeveralBlocks / 2, 'e');
    return SerializeJournal(journal);
  });
}

PlannedRun Plain() { return {}; }

PlannedRun Restoring() { return {.entry_point = EntryPoint::kRestoreBaseline}; }

PlannedRun FailingOnce(Fault fault) {
  return {.faults = {std::move(fault)}, .disturbance = Disturbance::kOnce};
}

PlannedRun FailingFrom(std::vector<Fault> faults) {
  return {.faults = std::move(faults), .disturbance = Disturbance::kLasting};
}

// The restoring copies of the first run are refused, too.
std::vector<Fault> RollbackFailsToo() {
  return {RefusedRename(u"Tolvarine.exe"),
          {.call = Call::CopyFileW, .first = 4, .times = kAlways, .code = kAccessDenied}};
}

Scenario OnTwoVolumes(Scenario scenario) {
  scenario.name += ", two volumes";
  scenario.plan.state_drive = u'D';
  return scenario;
}

std::vector<Scenario> ForwardScenarios() {
  return {
      {"first install", EmptyTargetPlan(), {}, {Plain()}},
      {.name = "files of several blocks",
       .plan = SeveralBlocksPlan(),
       .prepare = UntilLongJournal,
       .runs = {Plain()},
       .losses = 4,
       .cases = 400},
      {"change, add and delete", SmallPlan(), {}, {Plain()}, ExpectedEnding::kInstalled, true},
      {"deletions of missing files", MissingDeletionsPlan(), {}, {Plain()}},
      {"executable in another case", OtherCasePlan(), {}, {Plain()}},
      {"finalization", SmallPlan(), UntilCommitted, {Plain()}},
      {"older journal", WithoutDeletions(), UntilOlderJournal, {Plain()}},
  };
}

std::vector<Scenario> BackwardScenarios() {
  return {
      {"apply fails at the first entry",
       WithoutDeletions(),
       {},
       {FailingOnce(RefusedRename(u"a\\b\\new.dll"))}},
      {"apply fails in the middle",
       SmallPlan(),
       {},
       {FailingOnce(RefusedRename(u"lib\\core.dll"))}},
      {"apply fails at the last entry",
       SmallPlan(),
       {},
       {FailingOnce(RefusedRename(u"Tolvarine.exe"))}},
      {"rollback fails and is retried",
       SmallPlan(),
       {},
       {FailingFrom(RollbackFailsToo()), Plain()}},
      {"a rolled-back update is tried again", SmallPlan(), UntilRolledBack, {Plain()}},
  };
}

std::vector<Scenario> CancellingScenarios() {
  constexpr ExpectedEnding kEither = ExpectedEnding::kInstalledOrBaseline;
  return {
      {"cancelled in backup",
       SmallPlan(),
       Until(CrashPoint::BackupEntryDone, 1),
       {Restoring()},
       kEither},
      {"cancelled in apply", SmallPlan(), Until(CrashPoint::ApplyEntryDone, 1), {Restoring()}},
      {"cancelled in rollback", SmallPlan(), UntilHalfRolledBack, {Restoring()}},
      {"cancelled when rolled back", SmallPlan(), UntilRolledBack, {Restoring()}},
      {"cancelled when committed", SmallPlan(), UntilCommitted, {Restoring()}},
  };
}

}  // namespace

std::vector<Scenario> AllScenarios() {
  std::vector<Scenario> scenarios;
  for (const auto& group : {ForwardScenarios(), BackwardScenarios(), CancellingScenarios()}) {
    for (const Scenario& scenario : group) {
      scenarios.push_back(scenario);
      scenarios.push_back(OnTwoVolumes(scenario));
    }
  }
  return scenarios;
}

}  // namespace tolvarine::updater::crash_lab
