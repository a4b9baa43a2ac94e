#include <algorithm>
#include <array>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/scenario_runner.h"
#include "engine/entry_temporary.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Call;
using simulated::Fault;
using simulated::kAlways;

// Codes that a call plausibly fails with, beside those of its kind of medium.
std::vector<std::uint32_t> CodesOf(Call call) {
  switch (call) {
    case Call::CreateFileW:
    case Call::CreateFile2:
      return {2, 3, 5, 32, 1117, 1142};
    case Call::ReadFile:
    case Call::FlushFileBuffers:
      return {0, 5, 21, 1117};
    case Call::WriteFile:
      return {29, 112, 1117};
    case Call::MoveFileExW:
      return {2, 5, 17, 32, 112, 1117};
    case Call::CopyFileW:
      return {2, 5, 32, 112};
    case Call::DeleteFileW:
    case Call::CreateDirectoryW:
      return {3, 5, 32, 112};
    case Call::SetFileInformationByHandle:
      return {1, 5, 32, 50, 87, 145};
    case Call::FindFirstFileW:
    case Call::FindFirstFileExW:
    case Call::FindNextFileW:
      return {2, 3, 5, 18, 1117};
    case Call::GetFileAttributesW:
    case Call::GetFileAttributesExW:
      return {2, 3, 5, 32, 53, 123};
    case Call::GetFinalPathNameByHandleW:
      return {3, 5, 50};
    case Call::BCryptOpenAlgorithmProvider:
    case Call::BCryptGetProperty:
    case Call::BCryptCreateHash:
    case Call::BCryptHashData:
    case Call::BCryptFinishHash:
      return {0xC0000017};
    case Call::WideCharToMultiByte:
    case Call::MultiByteToWideChar:
      return {1113};
    default:
      return {5};
  }
}

bool MovesBytes(Call call) {
  return call == Call::WriteFile || call == Call::CopyFileW || call == Call::Fwrite ||
         call == Call::Fread || call == Call::Fflush;
}

// Waits and the lock come before the transaction, the box and the restart after it; their failures
// are rows of the ending table, which the program's own tests go through.
bool IsOutsideTransaction(Call call) {
  return call == Call::CommandLineToArgvW || call == Call::CreateMutexW ||
         call == Call::WaitForSingleObject || call == Call::MessageBoxW ||
         call == Call::GetLocalTime || call == Call::GetTimeZoneInformation;
}

// Calls that ask what is there. CreateFile2 opens for queries and for removals alone.
bool IsQuery(Call call) {
  static constexpr std::array kQueries = {Call::CreateFile2,
                                          Call::GetFileAttributesW,
                                          Call::GetFileAttributesExW,
                                          Call::FindFirstFileW,
                                          Call::FindFirstFileExW,
                                          Call::FindNextFileW,
                                          Call::GetFinalPathNameByHandleW};
  return std::ranges::find(kQueries, call) != kQueries.end();
}

// A query that says of what is there that it is missing, or that a directory has no more entries.
// A text that cannot be mapped to lower case counts as its own key, and the executable is then not
// recognized.
bool IsFalseAnswer(const Fault& fault) {
  static constexpr std::array<std::uint32_t, 5> kMissing = {2, 3, 18, 53, 123};
  if (fault.call == Call::LCMapStringEx) return true;
  return IsQuery(fault.call) && std::ranges::find(kMissing, fault.code) != kMissing.end();
}

// What is done to a run: a fault, or one of the two others instead.
struct Case {
  Fault fault;
  std::optional<std::uint64_t> exhausted_at{};  // The call at which memory runs out.
  std::optional<std::uint64_t> wrong_copy{};    // The CopyFileW that succeeds with wrong bytes.
  bool restores{};                              // That copy is one of a rollback.

  [[nodiscard]] Disturbance Kind() const {
    if (exhausted_at) return Disturbance::kOnce;
    // A restored file is verified under its final name, and so the run ends with it wrong there.
    if (wrong_copy) return restores ? Disturbance::kLasting : Disturbance::kOnce;
    if (IsFalseAnswer(fault)) return Disturbance::kFalseAnswer;
    return fault.times == 1 ? Disturbance::kOnce : Disturbance::kLasting;
  }
  [[nodiscard]] std::string Text() const;
};

std::string Case::Text() const {
  if (exhausted_at) return "memory:" + std::to_string(*exhausted_at);
  if (wrong_copy) return "wrong-copy:" + std::to_string(*wrong_copy);
  std::string text = "fault:" + std::string(CallName(fault.call)) + ":" +
                     std::to_string(fault.first) + ":" + std::to_string(fault.code);
  if (fault.partial) text += ":short";
  if (fault.times != 1) text += ":for-ever";
  return text;
}

void AddCases(Call call, std::uint64_t occurrence, std::vector<Case>& cases) {
  for (const std::uint32_t code : CodesOf(call)) {
    for (const std::uint64_t times : {std::uint64_t{1}, kAlways}) {
      cases.push_back({{.call = call, .first = occurrence, .times = times, .code = code}});
    }
  }
  if (!MovesBytes(call)) return;
  Fault cut_short{.call = call, .first = occurrence, .times = 1, .code = 112};
  cut_short.partial = 3;
  cases.push_back({cut_short});
}

struct Cases {
  std::vector<Case> failures;
  // Few, so that a sample of all cases would leave them out.
  std::vector<Case> wrong_copies;
};

// The copy of the pending marker is not among the wrong ones, since nothing compares it.
Cases AllCases(ScenarioRunner& runner, const PlannedRun& run) {
  const auto& layout = runner.update().layout;
  Cases cases;
  runner.Run(runner.start(), run, nullptr, [&](const simulated::CallRecord& call) {
    if (IsOutsideTransaction(call.call) || simulated::IsRelease(call.call)) return;
    AddCases(call.call, call.occurrence, cases.failures);
    cases.failures.push_back({.fault = {}, .exhausted_at = call.index});
    if (call.call != Call::CopyFileW || call.path == layout.pending_marker) return;
    const bool restores = call.path.find(layout.transaction) != Path::npos;
    cases.wrong_copies.push_back(
        {.fault = {}, .wrong_copy = call.occurrence, .restores = restores});
  });
  return cases;
}

// The scenario's own faults stay, and add to the one that is tried.
PlannedRun RunOf(const PlannedRun& planned, const Case& tried) {
  PlannedRun run = planned;
  if (!tried.exhausted_at && !tried.wrong_copy) run.faults.push_back(tried.fault);
  run.disturbance = tried.Kind();
  if (!planned.faults.empty() && run.disturbance == Disturbance::kOnce) {
    run.disturbance = Disturbance::kLasting;
  }
  return run;
}

// Makes the copy of this occurrence one that has succeeded with a wrong last byte: the next call
// flushes the file that it made, and so names it.
class WrongCopy {
 public:
  WrongCopy(ScenarioRunner& runner, std::uint64_t occurrence)
      : runner_(runner), occurrence_(occurrence) {}

  void operator()(const simulated::CallRecord& call) {
    if (copied_ && call.call == Call::CreateFileW) Spoil(call.path);
    copied_ = call.call == Call::CopyFileW && call.occurrence == occurrence_;
  }

 private:
  // The wrong bytes come under the copy's final name, where the program verifies them.
  void Spoil(std::u16string path) {
    if (path.starts_with(kExtendedLengthPrefix)) path.erase(0, kExtendedLengthPrefix.size());
    std::string content = *runner_.computer().disk.ReadFile(path);
    if (content.empty()) return;
    content.back() ^= 1;
    runner_.computer().disk.WriteFile(path, content);
    path.resize(path.size() - kTemporarySuffix.size());
    runner_.check().ExemptOnly({path});
  }

  ScenarioRunner& runner_;
  std::uint64_t occurrence_;
  bool copied_ = false;
};

CallVisitor VisitorOf(ScenarioRunner& runner, const Case& tried) {
  if (tried.wrong_copy) return WrongCopy(runner, *tried.wrong_copy);
  if (!tried.exhausted_at) return nullptr;
  return [at = *tried.exhausted_at](const simulated::CallRecord& call) {
    if (call.index == at) throw std::bad_alloc();
  };
}

void Try(ScenarioRunner& runner, const PlannedRun& planned, const Case& tried) {
  const PlannedRun run = RunOf(planned, tried);
  const std::string replay = "--case " + tried.Text();
  runner.check().ExemptOnly({});
  const EndedRun ended =
      runner.CheckedRun(runner.start(), run, replay, nullptr, VisitorOf(runner, tried));
  if (run.disturbance != Disturbance::kFalseAnswer) runner.Converge(ended.disks, replay);
}

}  // namespace

Figures BreakCalls(const Scenario& scenario, const CampaignBounds& bounds) {
  ScenarioRunner runner(scenario, bounds.transcript);
  const PlannedRun& run = scenario.runs.front();
  Cases cases = AllCases(runner, run);
  for (std::vector<Case>* some : {&cases.wrong_copies, &cases.failures}) {
    TryEach(Chosen(std::move(*some), bounds, runner.figures()), bounds, runner.figures(),
            [&](const Case& tried) { Try(runner, run, tried); });
  }
  return runner.figures();
}

}  // namespace tolvarine::updater::crash_lab
