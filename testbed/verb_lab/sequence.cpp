#include "verb_lab/sequence.h"

#include <algorithm>
#include <array>
#include <exception>
#include <functional>
#include <utility>

#include "driver/installation_lock.h"
#include "simulated_windows/file_system.h"
#include "support/shown_text.h"
#include "verb_lab/checker.h"
#include "verb_lab/others.h"
#include "verb_lab/random.h"

namespace tolvarine::updater::verb_lab {

using application::Outcome;
using application::WorkspaceState;
using simulated::Call;
using simulated::CallRecord;

namespace {

constexpr std::uint64_t kFewestVerbs = 6;
constexpr std::uint64_t kOneToMoreVerbs = 7;
constexpr int kMostStartsAtTheEnd = 8;

// X(enumerator, name, weight)
#define VERB_LAB_DISTURBANCES(X)                  \
  X(None, "undisturbed", 45)                      \
  X(Cut, "the power is cut", 25)                  \
  X(Failure, "a call fails once", 8)              \
  X(Failures, "a call fails from then on", 6)     \
  X(Held, "a file is held", 6)                    \
  X(LockTaken, "another session has the lock", 2) \
  X(MutexTaken, "an updater has the mutex", 2)    \
  X(Cancelled, "it is cancelled", 3)              \
  X(PackageChanged, "the package changes", 3)

#define VERB_LAB_ENUMERATOR(enumerator, ...) enumerator,
enum class Disturbance { VERB_LAB_DISTURBANCES(VERB_LAB_ENUMERATOR) };
#undef VERB_LAB_ENUMERATOR

struct DisturbanceRow {
  std::string_view name;
  unsigned weight;
};

#define VERB_LAB_ROW(enumerator, name, weight) DisturbanceRow{name, weight},
constexpr std::array kDisturbances = {VERB_LAB_DISTURBANCES(VERB_LAB_ROW)};
#undef VERB_LAB_ROW

struct WeightedVerb {
  Verb verb;
  unsigned weight;
};

constexpr std::array kVerbs = {WeightedVerb{Verb::Status, 1},  WeightedVerb{Verb::Check, 1},
                               WeightedVerb{Verb::Prepare, 7}, WeightedVerb{Verb::Start, 7},
                               WeightedVerb{Verb::Finish, 3},  WeightedVerb{Verb::Abandon, 2},
                               WeightedVerb{Verb::Adopt, 1}};

// Calls that report nothing, that only answer, and would answer falsely, or that turn texts.
bool CanFail(Call call) {
  constexpr std::array kNever = {
      Call::WideCharToMultiByte, Call::MultiByteToWideChar, Call::LCMapStringEx,
      Call::FormatMessageA,      Call::GetLocaleInfoEx,     Call::GetTimeZoneInformation,
      Call::GetLocalTime,        Call::BCryptImportKeyPair, Call::BCryptVerifySignature};
  return !IsRelease(call) && std::ranges::find(kNever, call) == kNever.end();
}

class Sequence {
 public:
  Sequence(Laboratory& laboratory, Random& random, SequenceResult& result)
      : laboratory_(laboratory),
        computer_(laboratory.fixture.computer),
        random_(random),
        result_(result),
        checker_(laboratory, [this](Invariant invariant,
                                    const std::string& what) { Violate(invariant, what); }),
        others_(laboratory, checker_, random, [this](const std::string& line) { Say(line); }) {}

  void Run();

 private:
  void Violate(Invariant invariant, const std::string& what) {
    result_.violations.push_back({invariant, what});
    Say("BROKEN " + std::string(NameOf(invariant)) + ": " + what);
  }
  void Say(const std::string& line) { result_.transcript += line + "\n"; }

  // What others do between two verbs.
  void Act();

  [[nodiscard]] Step Choose();
  void Carry(Step step, Disturbance disturbance);
  void Call(Step& step, const application::ProgressCallback& progress);
  void Disturbed(Step& step, Disturbance disturbance);
  void Record(Step& step, std::vector<CallRecord>& calls, std::uint64_t& reports);
  void Cut(Step& step, const CallRecord& at);
  void LosePower();
  void Fail(Step& step, const CallRecord& at, bool lasting);
  void ChangePackage(Step& step, std::uint64_t at);
  void WithHeldFile(Step& step);
  void WithLock(Step& step, Disturbance disturbance);

  void Converge();
  void RequireDone(const Step& step);

  Laboratory& laboratory_;
  simulated::Computer& computer_;
  Random& random_;
  SequenceResult& result_;
  Checker checker_;
  Others others_;
  std::string note_;  // Of the disturbance at hand.
  Step last_;
};

// --- Others --------------------------------------------------------------------------------------

void Sequence::Act() {
  ++result_.acts;
  switch (random_.Below(12)) {
    case 0:
    case 1:
    case 2: {
      // Often the one that has just been prepared.
      const bool same = last_.release != nullptr && random_.Chance(30);
      const PackagedRelease& release = same ? *last_.release : random_.OneOf(laboratory_.releases);
      others_.InstallPackage(release);
      if (random_.Chance(50))
        Carry({.verb = Verb::Adopt, .release = &release},
              random_.Chance(30) ? Disturbance::Cut : Disturbance::None);
      return;
    }
    case 3:
    case 4:
    case 5:
      return others_.ChangeFile();
    case 6:
    case 7:
      return others_.CleanStage();
    case 8:
    case 9:
      return others_.RemovePendingMarker();
    case 10:
      return others_.LeaveSlotTemporaries();
    default:
      return others_.DamageJournal();
  }
}

// --- Verbs ---------------------------------------------------------------------------------------

Step Sequence::Choose() {
  Step step{.verb = kVerbs[random_.Weighted(kVerbs)].verb};
  // Mostly the release that the last call was about, so that verbs are repeated.
  const bool same = last_.release != nullptr && random_.Chance(40);
  step.release = same ? last_.release : &random_.OneOf(laboratory_.releases);
  if (random_.Chance(60)) step.accepted_sequence = step.release->release.description.sequence;
  const DiskView view = Look(laboratory_);
  if (!view.workspaces.empty() && random_.Chance(30))
    step.id = random_.OneOf(view.workspaces).first;
  return step;
}

void Sequence::Call(Step& step, const application::ProgressCallback& progress) {
  simulated::SimulatedInstallation& fixture = laboratory_.fixture;
  fixture.exit_code.reset();
  const std::size_t processes = computer_.processes.created.size();
  application::PrepareRequest request;
  if (step.release != nullptr) request = fixture.RequestOf(*step.release);
  request.accepted_sequence = step.accepted_sequence;
  request.progress = progress;
  try {
    switch (step.verb) {
      case Verb::Status:
        step.result = fixture.Status().result;
        break;
      case Verb::Check:
        step.result = application::Check(fixture.installation, request, fixture.keys).result;
        break;
      case Verb::Prepare:
        step.result = application::Prepare(fixture.installation, request, fixture.keys).result;
        break;
      case Verb::Start:
        step.result =
            application::Start(fixture.installation, {.id = step.id, .wait_pid = 0}).result;
        break;
      case Verb::Finish:
        step.result = application::Finish(fixture.installation, progress);
        break;
      case Verb::Abandon:
        step.result = fixture.Abandon(step.id);
        break;
      case Verb::Adopt:
        step.result = application::Adopt(fixture.installation,
                                         {.release = step.release->release, .progress = progress},
                                         fixture.keys);
        break;
    }
  } catch (const simulated::PowerCut&) {
    step.cut = true;
  } catch (const std::exception& failure) {
    step.exception = failure.what();
  }
  step.cut = step.cut || computer_.calls.power_is_off();
  step.started = computer_.processes.created.size() > processes;
  step.exit_code = fixture.exit_code;
}

// Carries out the verb on a copy of the disks, to learn its calls and how often it reports.
void Sequence::Record(Step& step, std::vector<CallRecord>& calls, std::uint64_t& reports) {
  const std::deque<simulated::Volume> volumes = computer_.disks.volumes;
  computer_.Restart(volumes);
  computer_.calls.keep_trace = true;
  Step copy = step;
  Call(copy, [&](const application::Progress&) { return ++reports != 0; });
  computer_.calls.keep_trace = false;
  calls = std::move(computer_.calls.trace);
  computer_.Restart(volumes);
}

void Sequence::LosePower() {
  const Files before = Look(laboratory_).target;
  for (simulated::Volume& volume : computer_.disks.volumes) {
    // Often nothing at all is lost, or everything that may be.
    std::size_t changes = random_.Below(volume.unforced().size() + 1);
    if (random_.Chance(30)) changes = random_.Chance(50) ? 0 : volume.unforced().size();
    std::map<simulated::NodeId, simulated::ContentSurvival> survival;
    for (const simulated::NodeId id : volume.UnflushedFiles()) {
      for (int sector = 0; sector < 4; ++sector) survival[id].keep.push_back(random_.Chance(50));
    }
    volume.CutPower(changes, survival);
  }
  computer_.Restart();
  others_.Download();
  if (!laboratory_.two_volumes) return;
  Files back = Look(laboratory_).target;
  std::erase_if(back, [&](const auto& file) { return before.contains(file.first); });
  checker_.CameBack(back);
}

void Sequence::Cut(Step& step, const CallRecord& at) {
  note_ += std::string(" at ") + std::string(CallName(at.call)) + " " + Shown(at.path);
  computer_.calls.before_call = [&, index = at.index](const CallRecord& record) {
    if (record.index == index) computer_.calls.CutPower();
  };
  Call(step, {});
  computer_.calls.before_call = nullptr;
  if (!step.cut) return;
  ++result_.cuts;
  // The disks can be read again; until then they show what the calls have seen.
  computer_.calls.Reset();
  LosePower();
}

void Sequence::Fail(Step& step, const CallRecord& at, bool lasting) {
  ++result_.failures;
  constexpr std::array<std::uint32_t, 3> kCodes = {5, 32, 112};
  const bool hash = CallName(at.call).starts_with("BCrypt");
  const std::uint32_t code = hash ? 0xC0000001 : random_.OneOf(kCodes);
  note_ += std::string(": ") + std::string(CallName(at.call)) + " " + Shown(at.path) + " with " +
           std::to_string(code);
  computer_.calls.Inject({.call = at.call,
                          .first = at.occurrence,
                          .times = lasting ? simulated::kAlways : 1,
                          .code = code});
  Call(step, {});
  computer_.calls.ClearFaults();
}

// One byte of the package is changed before a call; its file is put right again afterwards.
void Sequence::ChangePackage(Step& step, std::uint64_t at) {
  const auto& file = random_.OneOf(step.release->files);
  const Path path = JoinPath(step.release->package, file.first);
  computer_.calls.before_call = [&](const CallRecord& record) {
    if (record.index != at) return;
    std::string changed = file.second;
    changed.back() = '!';
    computer_.disk.WriteFile(path, changed);
  };
  Call(step, {});
  computer_.calls.before_call = nullptr;
  computer_.disk.WriteFile(path, file.second);
}

void Sequence::WithHeldFile(Step& step) {
  const DiskView view = Look(laboratory_);
  std::vector<Path> paths;
  for (const auto& [key, content] : view.target) {
    paths.push_back(JoinPath(laboratory_.fixture.target, key));
  }
  for (const auto& [key, content] : view.state) {
    if (!key.ends_with(u'\\')) paths.push_back(JoinPath(laboratory_.fixture.state_root, key));
  }
  const Path path = random_.OneOf(paths);
  const std::uint32_t sharing = random_.Chance(50) ? 0 : platform::kFileShareRead;
  note_ += ": " + Shown(path) + (sharing == 0 ? ", not shared" : ", shared for reading");
  const platform::Handle held = computer_.disk.Hold(path, platform::kGenericRead, sharing);
  Call(step, {});
  computer_.disk.Release(held);
}

void Sequence::WithLock(Step& step, Disturbance disturbance) {
  const application::Installation& installation = laboratory_.fixture.installation;
  const Path lock = JoinPath(installation.state, u"lock");
  platform::Handle held = platform::kInvalidHandle;
  // Without a state directory `status` has nothing to read.
  if (!computer_.disk.Exists(lock)) return Call(step, {});
  step.locked = true;
  if (disturbance == Disturbance::LockTaken) {
    held = computer_.disk.Hold(lock, platform::kGenericRead, 0);
  } else {
    computer_.processes.mutex_holders[InstallationMutexName(installation.key)] = {};
  }
  Call(step, {});
  computer_.processes.mutex_holders.clear();
  if (held != platform::kInvalidHandle) computer_.disk.Release(held);
}

void Sequence::Disturbed(Step& step, Disturbance disturbance) {
  note_ = std::string(kDisturbances[static_cast<std::size_t>(disturbance)].name);
  if (disturbance == Disturbance::LockTaken || disturbance == Disturbance::MutexTaken) {
    return WithLock(step, disturbance);
  }
  step.disturbed = disturbance != Disturbance::None;
  if (disturbance == Disturbance::None) return Call(step, {});
  if (disturbance == Disturbance::Held) return WithHeldFile(step);
  std::vector<CallRecord> calls;
  std::uint64_t reports = 0;
  Record(step, calls, reports);
  if (disturbance == Disturbance::Cancelled) {
    std::uint64_t left = random_.Below(reports + 1);
    return Call(step, [&](const application::Progress&) { return left-- != 0; });
  }
  if (disturbance == Disturbance::PackageChanged) {
    if (step.release == nullptr) return Call(step, {});
    return ChangePackage(step, 1 + random_.Below(calls.size() + 1));
  }
  if (disturbance == Disturbance::Cut) {
    if (calls.empty()) return Call(step, {});
    // The end of a verb is short, and much of what matters happens there.
    const std::size_t last = calls.size() - 1 - random_.Below(calls.size() / 8 + 1);
    return Cut(step, random_.Chance(30) ? calls[last] : random_.OneOf(calls));
  }
  std::erase_if(calls, [](const CallRecord& record) { return !CanFail(record.call); });
  if (calls.empty()) return Call(step, {});
  Fail(step, random_.OneOf(calls), disturbance == Disturbance::Failures);
}

void Sequence::Carry(Step step, Disturbance disturbance) {
  ++result_.verbs;
  // Whoever prepares has a package.
  const bool needs_package = step.verb == Verb::Prepare || step.verb == Verb::Check;
  if (others_.packages_gone() && needs_package) others_.Download();
  const DiskView before = Look(laboratory_);
  computer_.processes.created.clear();
  Disturbed(step, disturbance);
  const DiskView after = Look(laboratory_);
  std::string line = std::string(NameOf(step.verb));
  if (step.verb == Verb::Prepare || step.verb == Verb::Check || step.verb == Verb::Adopt) {
    line += " " + step.release->release.description.version + " (" +
            Shown(step.release->release.id.substr(0, 4)) + ")";
    if (step.accepted_sequence != 0 && step.verb != Verb::Adopt) line += " by name";
  } else if (!step.id.empty()) {
    line += " " + Shown(step.id.substr(0, 4));
  }
  line += ", " + note_ + " ->";
  line += step.cut ? " cut" : " " + std::to_string(static_cast<int>(step.result.outcome));
  for (const application::Reason& reason : step.result.reasons) {
    line += " " + std::string(application::NameOf(reason.code));
    if (reason.code == application::ReasonCode::SystemFailure) line += " (" + reason.text + ")";
  }
  if (step.exit_code) line += ", updater " + std::to_string(*step.exit_code);
  if (!step.cut && step.result.outcome != Outcome::Done) ++result_.refused;
  Say(line);
  checker_.After(step, before, after);
  line = "   ";
  for (const auto& [id, workspace] : after.workspaces) {
    line += " " + Shown(id.substr(0, 4)) + " " +
            std::string(application::NameOf(checker_.StateOf(id, after)));
  }
  if (!after.workspaces.empty()) Say(line);
  if (computer_.files().open_handles() != 0) {
    Violate(Invariant::kNothingLeaked, std::string(NameOf(step.verb)));
  }
  last_ = step;
}

// --- The end -------------------------------------------------------------------------------------

void Sequence::RequireDone(const Step& step) {
  if (!result_.violations.empty()) return;
  Carry(step, Disturbance::None);
  if (last_.result.outcome == Outcome::Done) return;
  Violate(Invariant::kConverges, std::string(NameOf(step.verb)) + " is refused");
}

void Sequence::Converge() {
  Say("the end");
  for (int tried = 0; tried < kMostStartsAtTheEnd; ++tried) {
    const DiskView view = Look(laboratory_);
    const auto unfinished = std::ranges::find_if(view.workspaces, [&](const auto& workspace) {
      return application::IsUnfinished(checker_.StateOf(workspace.first, view));
    });
    if (unfinished == view.workspaces.end()) break;
    const WorkspaceState state = checker_.StateOf(unfinished->first, view);
    if (state == WorkspaceState::Damaged || state == WorkspaceState::Foreign) {
      others_.InstallPackage(laboratory_.releases[2]);
      RequireDone({.verb = Verb::Adopt, .release = &laboratory_.releases[2]});
    } else {
      RequireDone({.verb = Verb::Start, .id = unfinished->first});
    }
  }
  RequireDone({.verb = Verb::Prepare, .release = &laboratory_.newest});
  RequireDone({.verb = Verb::Start});
  RequireDone({.verb = Verb::Finish});
  if (!result_.violations.empty()) return;
  if (!last_.result.reasons.empty()) Violate(Invariant::kConverges, "finish has a warning");
  checker_.Converged(Look(laboratory_), laboratory_.fixture.Status());
}

void Sequence::Run() {
  const std::uint64_t verbs = kFewestVerbs + random_.Below(kOneToMoreVerbs);
  for (std::uint64_t i = 0; i < verbs && result_.violations.empty(); ++i) {
    if (random_.Chance(others_.IsMidway() ? 55 : 18)) Act();
    if (others_.HasLeftovers() && random_.Chance(60))
      Carry({.verb = Verb::Finish}, Disturbance::Cut);
    const auto disturbance = static_cast<Disturbance>(random_.Weighted(kDisturbances));
    if (disturbance != Disturbance::None && disturbance != Disturbance::Cut) ++result_.acts;
    Carry(Choose(), disturbance);
  }
  if (result_.violations.empty()) Converge();
}

}  // namespace

Sequences::Sequences() : one_volume_(false), two_volumes_(true) {}

SequenceResult Sequences::Run(std::uint64_t seed) {
  Random random(seed);
  Laboratory& laboratory = random.Below(3) == 0 ? two_volumes_ : one_volume_;
  const bool bare = random.Below(8) == 0;
  simulated::Computer& computer = laboratory.fixture.computer;
  computer.MakeCurrent();
  computer.Restart(bare ? laboratory.bare : laboratory.adopted);
  SequenceResult result;
  result.transcript = std::string(laboratory.two_volumes ? "two volumes" : "one volume") +
                      (bare ? ", without a state directory" : "") + "\n";
  Sequence(laboratory, random, result).Run();
  return result;
}

}  // namespace tolvarine::updater::verb_lab
