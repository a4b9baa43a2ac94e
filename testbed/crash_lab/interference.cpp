#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <vector>

#include "crash_lab/campaigns.h"
#include "crash_lab/scenario_runner.h"
#include "platform/files.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::Call;
using simulated::Computer;
using simulated::FileSystem;
using simulated::SimulatedUpdate;

constexpr char16_t kOutside[] = u"C:\\Outside";
constexpr char16_t kHostile[] = u"C:\\Hostile";
constexpr std::string_view kHostileBytes = "hostile, of any length";
constexpr std::string_view kPreciousBytes = "somebody else's";

// What another process does, with no more rights to a file than the sharing of others leaves it. An
// act that is refused has no effect.
struct Act {
  const char* name;
  std::function<void(SimulatedUpdate&)> act;
  Disturbance disturbance;
  bool redirects = false;  // It changes where the target's names lead.
};

Path ReleaseFile(const SimulatedUpdate& update) { return update.SourcePath(u"lib\\core.dll"); }

Path Temporary(const SimulatedUpdate& update) {
  return update.TargetPath(u"lib\\core.dll.tolvarine-update-new");
}

// Opens a file as another process would, and does something with it if it may.
void WithFile(Computer& computer, const Path& path, std::uint32_t disposition,
              const std::function<void(simulated::OpenFile&)>& use) {
  FileSystem& files = computer.files();
  const FileSystem::Opened opened = files.Open({.path = path,
                                                .access = platform::kGenericWrite,
                                                .sharing = platform::kFileShareAll,
                                                .disposition = disposition});
  if (opened.handle == platform::kInvalidHandle) return;
  use(*files.Find(opened.handle));
  files.Close(opened.handle);
}

void ChangeReleaseFile(SimulatedUpdate& update) {
  WithFile(update.computer, ReleaseFile(update), platform::kOpenExisting,
           [&](simulated::OpenFile& file) { update.computer.files().Write(file, "NEW"); });
}

void ReplaceReleaseFile(SimulatedUpdate& update) {
  update.computer.disk.WriteFile(Path(kHostile) + u"\\core.dll", kHostileBytes);
  update.computer.files().Move(Path(kHostile) + u"\\core.dll", ReleaseFile(update),
                               platform::kMovefileReplaceExisting);
}

void DeleteReleaseFile(SimulatedUpdate& update) {
  update.computer.files().Delete(ReleaseFile(update));
}

void RenameReleaseFile(SimulatedUpdate& update) {
  update.computer.files().Move(ReleaseFile(update), update.SourcePath(u"lib\\other.dll"), 0);
}

void LinkReleaseFile(SimulatedUpdate& update) {
  update.computer.disk.MakeDirectory(kHostile);
  update.computer.files().MakeHardLink(ReleaseFile(update), Path(kHostile) + u"\\second-name");
}

// Moves a directory away and puts a junction in its place.
void Swap(SimulatedUpdate& update, const Path& directory, const Path& away, const Path& leads_to) {
  Computer& computer = update.computer;
  if (computer.files().Move(directory, away, 0) == 0)
    computer.disk.MakeJunction(directory, leads_to);
}

void SwapReleaseDirectory(SimulatedUpdate& update) {
  const Path hostile = Path(kHostile) + u"\\lib";
  update.computer.disk.WriteFile(hostile + u"\\core.dll", kHostileBytes);
  Swap(update, update.SourcePath(u"lib"), Path(kHostile) + u"\\moved", hostile);
}

void SwapTargetDirectory(SimulatedUpdate& update) {
  update.computer.disk.MakeDirectory(kHostile);
  Swap(update, update.TargetPath(u"lib"), Path(kHostile) + u"\\moved", Path(kOutside) + u"\\lib");
}

void PlantFile(SimulatedUpdate& update) {
  WithFile(update.computer, Temporary(update), platform::kCreateNew,
           [&](simulated::OpenFile& file) { update.computer.files().Write(file, kHostileBytes); });
}

void PlantDirectory(SimulatedUpdate& update) {
  if (update.computer.files().MakeDirectory(Temporary(update)) != 0) return;
  update.computer.disk.WriteFile(Temporary(update) + u"\\in-the-way", kHostileBytes);
}

void HoldTargetFile(SimulatedUpdate& update) {
  update.computer.disk.Hold(update.TargetPath(u"lib\\core.dll"), platform::kGenericRead,
                            platform::kFileShareRead | platform::kFileShareWrite);
}

const std::vector<Act>& AllActs() {
  static const std::vector<Act> kActs = {
      {"change a release file", ChangeReleaseFile, Disturbance::kOnce},
      {"replace a release file", ReplaceReleaseFile, Disturbance::kOnce},
      {"delete a release file", DeleteReleaseFile, Disturbance::kOnce},
      {"rename a release file", RenameReleaseFile, Disturbance::kOnce},
      {"hard-link a release file", LinkReleaseFile, Disturbance::kOnce},
      {"swap a release directory", SwapReleaseDirectory, Disturbance::kOnce},
      {"swap a target directory", SwapTargetDirectory, Disturbance::kFalseAnswer, true},
      {"plant a file", PlantFile, Disturbance::kOnce},
      {"plant a directory", PlantDirectory, Disturbance::kLasting},
      {"hold a target file", HoldTargetFile, Disturbance::kLasting},
  };
  return kActs;
}

struct Case {
  const Act* act = nullptr;
  std::uint64_t before_call = 0;

  [[nodiscard]] std::string Text() const {
    return "act:" + std::to_string(before_call) + ":" + act->name;
  }
};

// Undoes the act: the release is as it was staged, and nothing of the adversary's is left.
void Repair(SimulatedUpdate& update) {
  Computer& computer = update.computer;
  computer.disk.Remove(kHostile);
  computer.disk.Remove(update.source);
  for (const auto& [path, content] : update.plan.release) {
    computer.disk.WriteFile(update.SourcePath(path), content);
  }
  const auto planted = computer.disk.Look(Temporary(update));
  if (planted) computer.disk.Remove(Temporary(update));
}

// Calls that do not use the disk: an act before one of them is an act before the next call.
bool SeesNoDisk(Call call) {
  return call == Call::WideCharToMultiByte || call == Call::MultiByteToWideChar ||
         call == Call::LCMapStringEx || call == Call::FormatMessageA ||
         call == Call::GetLocaleInfoEx || CallName(call).starts_with("BCrypt");
}

class Adversary {
 public:
  Adversary(const Scenario& scenario, std::string* transcript)
      : planned_(scenario.runs.front()), runner_(scenario, transcript) {
    Computer& computer = runner_.computer();
    computer.Restart(runner_.start());
    computer.disk.WriteFile(Path(kOutside) + u"\\lib\\core.dll", kPreciousBytes);
    computer.disk.WriteFile(Path(kOutside) + u"\\lib\\old.dll", kPreciousBytes);
    computer.disks.Settle();
    start_ = computer.disks.volumes;
  }

  std::vector<Case> AllCases() {
    std::vector<Case> cases;
    const auto collect = [&](const simulated::CallRecord& call) {
      if (SeesNoDisk(call.call)) return;
      for (const Act& act : AllActs()) cases.push_back({&act, call.index});
    };
    runner_.Run(start_, planned_, nullptr, collect);
    return cases;
  }

  void Try(const Case& tried);
  Figures& figures() { return runner_.figures(); }

 private:
  void CheckOutside(const Case& tried, const std::string& between, const Disks& disks);
  [[nodiscard]] static bool OutsideUntouched(const Disks& disks);

  const PlannedRun planned_;
  ScenarioRunner runner_;
  Disks start_;
  // A path through the swapped directory has been proved since the act, with nothing outside
  // changed before: from there on nothing outside may change.
  bool proved_since_ = false;
};

void Adversary::Try(const Case& tried) {
  const Act& act = *tried.act;
  SimulatedUpdate& update = runner_.update();
  std::vector<std::u16string> exempt = {kHostile, kOutside, update.source, Temporary(update)};
  if (act.redirects) exempt.push_back(update.TargetPath(u"lib"));
  runner_.check().ExemptOnly(std::move(exempt));
  PlannedRun run = planned_;
  run.disturbance = std::max(planned_.disturbance, act.disturbance);
  const std::string replay = "--case '" + tried.Text() + "'";
  std::string previous;
  std::string between;
  proved_since_ = false;
  const auto interfere = [&](const simulated::CallRecord& call) {
    if (call.index == tried.before_call) {
      between = "between " + previous + " and " + std::string(CallName(call.call));
      act.act(update);
    }
    const bool proves = call.index > tried.before_call && act.redirects &&
                        call.call == simulated::Call::GetFinalPathNameByHandleW &&
                        call.path.starts_with(update.TargetPath(u"lib\\"));
    if (proves && OutsideUntouched(runner_.computer().disks.volumes)) proved_since_ = true;
    previous = CallName(call.call);
  };
  const std::size_t first = figures().violations.size();
  const EndedRun ended = runner_.CheckedRun(start_, run, replay, nullptr, interfere);
  CheckOutside(tried, between, ended.disks);
  runner_.Attribute(first, replay);
  if (act.redirects) return;
  Repair(update);
  runner_.Converge(runner_.computer().disks.volumes, replay);
}

bool Adversary::OutsideUntouched(const Disks& disks) {
  const Image image = ImageOf(disks);
  return std::ranges::all_of(std::array{u"CORE.DLL", u"OLD.DLL"}, [&](const char16_t* name) {
    const auto entry = image.find(std::u16string(u"C:\\OUTSIDE\\LIB\\") + name);
    return entry != image.end() && entry->second.content &&
           *entry->second.content == kPreciousBytes;
  });
}

// Nothing outside is touched, unless a directory was swapped while its path was in use.
void Adversary::CheckOutside(const Case& tried, const std::string& between, const Disks& disks) {
  const bool untouched = OutsideUntouched(disks);
  if (tried.act->redirects && !untouched && !proved_since_) {
    ++figures().accepted.redirected_writes;
    figures().redirected.insert(between);
    return;
  }
  Check(figures(), Invariant::kBystandersUntouched, untouched, "outside");
}

}  // namespace

Figures Interfere(const Scenario& scenario, const CampaignBounds& bounds) {
  Adversary adversary(scenario, bounds.transcript);
  TryEach(Chosen(adversary.AllCases(), bounds, adversary.figures()), bounds, adversary.figures(),
          [&](const Case& tried) { adversary.Try(tried); });
  return adversary.figures();
}

}  // namespace tolvarine::updater::crash_lab
