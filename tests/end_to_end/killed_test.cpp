// The updater is killed at random times, in updates that succeed and in updates that fail. Every
// file must then be of the old or of the new version, and the next runs must end the update as the
// journal says.
//
// The times are drawn from the duration of an undisturbed run, and a table at the end shows in
// which state the kills have found the update. TOLVARINE_KILLS sets their number. Each round has a
// seed of its own, from TOLVARINE_SEED on, so that TOLVARINE_KILLS=1 with a failed round's seed
// repeats it.

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "driver/installation_lock.h"
#include "end_to_end/real_update.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using inspection::ReadFile;
using inspection::Version;
using Seconds = std::chrono::duration<double>;

// What makes an update fail, near its end. A file that is held cannot be restored either.
enum class Obstacle { None, HeldFile, DirectoryAtTemporary };

constexpr char kHeld[] = "zz.dll";
constexpr char kInDirectory[] = "zy.dat.tolvarine-update-new/user.txt";

// In which state a kill finds the update: by the saved phase, from None to Corrupt, or one of two
// more.
constexpr std::array kStates = {
    "before the first save", "Backup",           "Apply",   "Rollback", "Committed", "RolledBack",
    "in the first save",     "marker published", "finished"};
constexpr std::size_t kMarkerPublished = 7;
constexpr std::size_t kFinished = 8;

std::uint64_t Setting(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

// Every kind of change several times, among files that the user has made.
UpdateContents ManyFiles(Obstacle obstacle) {
  UpdateContents contents = UsualContents();
  contents.installed["big.bin"] = std::string(2'000'000, 'a');
  contents.release["big.bin"] = std::string(3'000'000, 'b');
  contents.installed["old/user.txt"] = "made by the user";
  contents.installed["user.txt.tolvarine-update-new"] = "this too";
  contents.installed[kHeld] = "one";
  contents.release[kHeld] = "two";
  for (const char* name : {"a.dat", "zx.dat", "zy.dat"}) contents.release[name] = "new";
  if (obstacle == Obstacle::DirectoryAtTemporary) contents.installed[kInDirectory] = "user's";
  for (char16_t i = u'a'; i < u'e'; ++i) {
    const std::string name(1, static_cast<char>(i));
    contents.installed["lib/" + name + ".dll"] = "one";
    contents.release["lib/" + name + ".dll"] = std::string(20000, 'l') + name;
    contents.release["new/" + name + "/new.dat"] = name;
    contents.installed["old/" + name + ".dat"] = "old";
    contents.deletions.push_back(u"old\\" + Path(1, i) + u".dat");
  }
  return contents;
}

// The program that is restarted lies elsewhere, so that its report is not part of the target.
struct ObstructedUpdate {
  explicit ObstructedUpdate(Obstacle what) : obstacle(what) {
    update.RestartAnotherProgram();
    static_cast<void>(update.ChangesSince());
    if (obstacle == Obstacle::HeldFile) held = OpenWithoutDeleteSharing(update.target / kHeld);
  }

  void RemoveObstacle() {
    held.Reset();
    if (obstacle == Obstacle::DirectoryAtTemporary) {
      EXPECT_EQ(ReadFile(update.target / kInDirectory), "user's");
      fs::remove_all((update.target / kInDirectory).parent_path());
      update.contents.installed.erase(kInDirectory);
    }
    obstacle = Obstacle::None;
  }

  Obstacle obstacle;
  RealUpdate update{ManyFiles(obstacle)};
  FileHandle held{};
  // The mutex outlives the updater that is killed with it, and the next one is to take it over.
  InstallationLock lock{update.arguments.install_key};
};

bool IsPublished(const RealUpdate& update) { return fs::exists(update.layout.completed_marker); }

bool IsRestarting(const RealUpdate& update) { return !fs::exists(update.layout.archive); }

// The updater has only to restart the application, or shows its box.
bool IsFinished(const RealUpdate& update) {
  return IsRestarting(update) || fs::exists(update.target / "log.txt");
}

Seconds DurationOfARun() {
  const ObstructedUpdate undisturbed(Obstacle::None);
  const Clock::time_point start = Clock::now();
  const auto updater = undisturbed.update.Start();
  EXPECT_TRUE(Eventually([&] { return IsFinished(undisturbed.update); }));
  const Seconds duration = Clock::now() - start;
  EXPECT_EQ(updater->Finish(), Exit(0));
  return duration;
}

// When to kill: so long after the start or, if `sign` is set, after that file appears. The file is
// not opened, since an open file could make the updater fail.
struct KillTime {
  Seconds delay;
  Path sign{};
};

// Every other time is anywhere in the run. The rest follow a sign, most of them shortly: they meet
// states that pass quickly (the first save, the largest file, the beginning of the rollback, the
// publication of the markers), however fast the machine is.
KillTime DrawKillTime(std::mt19937_64& random, Seconds duration, const ObstructedUpdate& o) {
  const double part = std::uniform_real_distribution(0.0, 1.0)(random);
  if (random() % 2 == 0) return {duration * part};
  const inspection::UpdateLayout& layout = o.update.layout;
  const Path target = o.update.arguments.target;
  const Path signs[] = {
      layout.transaction, layout.transaction + u"\\backup\\lib\\c.dll", target + u"\\a.dat",
      o.obstacle == Obstacle::None ? layout.installed_manifest : target + u"\\zx.dat"};
  return {duration * part * part / 2, signs[random() % 4]};
}

// Returns the index of the state. An updater that is restarting the application is not killed:
// under Wine, a process that is started by one that is killed may never begin to run.
std::size_t KillAt(const KillTime& time, const RealUpdate& update) {
  constexpr Seconds kLateness(0.02);  // Of a sleep; the last part of the delay is spent polling.
  const auto updater = update.Start();
  while (!time.sign.empty() && !fs::exists(time.sign) && !IsFinished(update)) continue;
  const Clock::time_point start = Clock::now();
  while (Clock::now() - start < time.delay) {
    if (Clock::now() - start < time.delay - kLateness) Sleep(1);
  }
  if (IsRestarting(update)) {
    EXPECT_EQ(updater->Finish(), Exit(0));
    return kFinished;
  }
  updater->Kill();
  if (IsFinished(update)) return kFinished;
  return IsPublished(update) ? kMarkerPublished : static_cast<std::size_t>(update.SavedPhase());
}

// Every file is whole, the marker is in one place, and the release is as it was.
void ExpectWhole(RealUpdate& update) {
  update.ExpectTarget({Version::Old, Version::New, Version::Temporary});
  const inspection::UpdateLayout& layout = update.layout;
  EXPECT_NE(fs::exists(layout.pending_marker), IsPublished(update));
  for (const Path& path :
       {layout.pending_marker, layout.completed_marker, layout.installed_manifest}) {
    EXPECT_TRUE(!fs::exists(path) || ReadFile(path) == "{pending}") << inspection::NameOf(path);
  }
  for (const std::string& change : update.ChangesSince()) {
    EXPECT_EQ(change.find(" release/"), std::string::npos) << change;
  }
}

// How the next run has to end.
struct Ending {
  std::uint32_t code;
  std::string_view words;  // In its box.
  std::set<Version> versions;
};
const Ending kInstalled = {0, "", {Version::New}};
const Ending kRestored = {5, "The original installation was restored.", {Version::Old}};
const Ending kIncomplete = {
    5, "rollback is incomplete", {Version::Old, Version::New, Version::Temporary}};
const Ending kCorrupt = {5, "state is corrupt", {Version::Old}};
const Ending kDeferred = {7, "recognize the completed transaction", {Version::New}};

const Ending& NextEnding(const ObstructedUpdate& o) {
  if (IsPublished(o.update)) return kDeferred;  // There is no pending marker to publish any more.
  const TransactionPhase phase = o.update.SavedPhase();
  if (phase == TransactionPhase::Corrupt) return kCorrupt;
  if (o.obstacle == Obstacle::HeldFile) return kIncomplete;
  if (o.obstacle == Obstacle::DirectoryAtTemporary) return kRestored;
  return phase == TransactionPhase::Rollback ? kRestored : kInstalled;
}

// True when no further run can change anything.
bool RunToItsEnding(ObstructedUpdate& o) {
  RealUpdate& update = o.update;
  const Ending& ending = NextEnding(o);
  const std::string outcome = update.Run();
  EXPECT_TRUE(outcome.ends_with(Exit(ending.code))) << outcome;
  EXPECT_NE(outcome.find(ending.words), std::string::npos) << outcome;
  ExpectWhole(update);
  update.ExpectTarget(ending.versions);
  if (&ending == &kInstalled) {
    EXPECT_TRUE(IsPublished(update) && fs::exists(update.layout.installed_manifest));
    for (const Path& path :
         {update.layout.transaction, update.layout.archive, update.layout.launched_marker}) {
      EXPECT_FALSE(fs::exists(path)) << inspection::NameOf(path);
    }
  }
  return ending.code != 5 || &ending == &kCorrupt;
}

// Some runs meet the obstacle a second time. Without one, at most one run restores before the last
// one installs.
std::size_t RunRound(std::uint64_t seed, Obstacle obstacle, Seconds duration) {
  std::mt19937_64 random(seed);
  ObstructedUpdate o(obstacle);
  const std::size_t state = KillAt(DrawKillTime(random, duration, o), o.update);
  SCOPED_TRACE(kStates[state]);
  ExpectWhole(o.update);
  if (obstacle != Obstacle::None && random() % 2 == 0) RunToItsEnding(o);
  o.RemoveObstacle();
  EXPECT_TRUE(RunToItsEnding(o) || RunToItsEnding(o));
  return state;
}

// Kills by state: in updates without an obstacle, and in the others.
using Table = std::array<std::array<int, 2>, kStates.size()>;

void Print(const Table& table) {
  std::printf("%-24s%10s%10s\n", "killed", "succeeding", "failing");
  for (std::size_t i = 0; i < kStates.size(); ++i) {
    std::printf("%-24s%10d%10d\n", kStates[i], table[i][0], table[i][1]);
  }
}

TEST(Killed, EveryFileIsWholeAndTheNextRunsEndTheUpdate) {
  const std::uint64_t seed = Setting("TOLVARINE_SEED", 20260301);
  const std::uint64_t kills = Setting("TOLVARINE_KILLS", 26);
  const Seconds duration = DurationOfARun();
  std::printf("TOLVARINE_KILLS=%llu TOLVARINE_SEED=%llu, a run takes %.2f s\n", kills, seed,
              duration.count());
  Seconds durations[] = {duration, duration, duration};
  constexpr std::size_t kObstacles[] = {0, 1, 0, 2};  // By turns; half of the updates succeed.
  Table table = {};
  int in_transaction = 0;
  for (std::uint64_t round = seed; round < seed + kills; ++round) {
    SCOPED_TRACE("TOLVARINE_KILLS=1 TOLVARINE_SEED=" + std::to_string(round));
    const std::size_t obstacle = kObstacles[round % 4];
    const std::size_t state = RunRound(round, Obstacle(obstacle), durations[obstacle]);
    ++table[state][obstacle == 0 ? 0 : 1];
    if (state > 0 && state < kMarkerPublished) ++in_transaction;
    // A rollback takes longer, and the machine's pace changes: one kill in five is to be too late.
    durations[obstacle] *= state == kFinished ? 0.7 : 1.1;
  }
  Print(table);
  EXPECT_TRUE(in_transaction > 0 || kills < 10) << "no kill has met a transaction";
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
