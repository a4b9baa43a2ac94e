// The updater is killed at random moments of updates that succeed and of updates that fail. What it
// leaves is judged as it lies there, by what the journal says of it, and then by what the next runs
// make of it.
//
// The kill_time is this test's random input: it is drawn from the length of a run that nobody disturbs,
// and the table at the end tells what the kills have met. TOLVARINE_KILLS asks for another number of
// them. All that is drawn for a round comes from a seed of its own, TOLVARINE_SEED for the first and
// the next number for each one after it; so with TOLVARINE_KILLS=1 a failure's seed repeats it.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "driver/installation_lock.h"
#include "end_to_end/real_update.h"
#include "engine/entry_temporary.h"
#include "files/unique_handle.h"
#include "journal/journal_store.h"

namespace tolvarine::updater::end_to_end {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// What makes an update fail, near its end. A file that is held cannot be restored either.
enum class Hindrance { None, HeldFile, Obstacle };

constexpr char kHeld[] = "zz.dll";
constexpr char kObstacle[] = "zy.dat.tolvarine-update-new/mine.txt";

// Where a kill has found the update: by the saved phase, from None to Corrupt, or in one of two more.
constexpr std::array kStates = {
    "before the first save", "Backup",           "Apply",     "Rollback", "Committed", "RolledBack",
    "in the first save",     "marker published", "at its end"};
constexpr std::size_t kMarkerPublished = 7;
constexpr std::size_t kAtItsEnd = 8;

std::uint64_t Told(const char* variable, std::uint64_t otherwise) {
  const char* const text = std::getenv(variable);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::string ContentOf(const fs::path& path) {
  return fs::exists(path) ? ReadBytes(path) : "nothing";
}

// Every kind of change several times, among files of the user's own.
UpdateContents ManyFiles(Hindrance hindrance) {
  UpdateContents contents = UsualContents();
  contents.installed["big.bin"] = std::string(2'000'000, 'a');
  contents.release["big.bin"] = std::string(3'000'000, 'b');
  contents.installed["old/mine.txt"] = "the user's own, too";
  contents.installed["mine.txt.tolvarine-update-new"] = "and this";
  contents.installed[kHeld] = "one";
  contents.release[kHeld] = "two";
  for (const char* name : {"a.dat", "zx.dat", "zy.dat"}) contents.release[name] = "new";
  if (hindrance == Hindrance::Obstacle) contents.installed[kObstacle] = "mine";
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

struct Scene {
  explicit Scene(Hindrance what);
  void LetGo();

  Hindrance hindrance;
  RealUpdate update{ManyFiles(hindrance)};
  FileHandle held{};
  // The lock outlives the updater that is killed with it, and the next one is to take it over.
  InstallationLock lock{update.arguments.install_key};
};

// The program that is restarted lies elsewhere: what it tells of itself is no part of the target.
Scene::Scene(Hindrance what) : hindrance(what) {
  const fs::path launcher = update.root / "launcher" / "Start.exe";
  fs::create_directory(launcher.parent_path());
  WriteBytes(launcher, Application("launcher"));
  update.arguments.restart = launcher.u16string();
  static_cast<void>(update.ChangesSince());
  if (hindrance == Hindrance::HeldFile) {
    held = FileHandle(platform::CreateFileW((update.target / kHeld).u16string().c_str(),
                                            platform::kGenericRead,
                                            platform::kFileShareRead | platform::kFileShareWrite,
                                            platform::kOpenExisting, /*flags=*/0));
  }
}

void Scene::LetGo() {
  held.Reset();
  if (hindrance == Hindrance::Obstacle) {
    EXPECT_EQ(ContentOf(update.target / kObstacle), "mine");
    fs::remove_all((update.target / kObstacle).parent_path());
    update.contents.installed.erase(kObstacle);
  }
  hindrance = Hindrance::None;
}

bool IsRestarting(const RealUpdate& update) { return !fs::exists(update.layout.archive); }

// It has only to restart the application, or to have its box dismissed.
bool IsAtItsEnd(const RealUpdate& update) {
  return IsRestarting(update) || fs::exists(update.target / "log.txt");
}

// Until it is at its end, of a run that nobody disturbs: the median of three.
Seconds LengthOfARun() {
  std::array<Seconds, 3> lengths;
  for (Seconds& length : lengths) {
    const Scene scene(Hindrance::None);
    const Clock::time_point start = Clock::now();
    const auto updater = scene.update.Start();
    EXPECT_TRUE(Eventually([&] { return IsAtItsEnd(scene.update); }));
    length = Clock::now() - start;
    EXPECT_EQ(updater->Finish(), Exit(0));
  }
  std::ranges::sort(lengths);
  return lengths[1];
}

bool IsPublished(const RealUpdate& update) { return fs::exists(update.layout.completed_marker); }

// When to kill: so long after the start or, if there is a sign, after that file appears. Nothing is
// opened for it: that alone could make the updater fail.
struct KillTime {
  Seconds delay;
  Path sign{};
};

// Every other kill_time lies anywhere. The others lie behind a milestone, most of them shortly: they
// meet what is soon over (the first save, the largest file, the rollback's beginning, the publishing
// of the markers), and are in time however the pace of the machine changes.
KillTime DrawKillTime(std::mt19937_64& random, Seconds length, const Scene& scene) {
  const double part = std::uniform_real_distribution(0.0, 1.0)(random);
  if (random() % 2 == 0) return {length * part};
  const staging::UpdateLayout& layout = scene.update.layout;
  const Path target = scene.update.arguments.target;
  const bool succeeds = scene.hindrance == Hindrance::None;
  const Path signs[] = {layout.transaction, layout.transaction + u"\\backup\\lib\\c.dll",
                        target + u"\\a.dat",
                        succeeds ? layout.installed_manifest : target + u"\\zx.dat"};
  return {length * part * part / 2, signs[random() % 4]};
}

// Returns the index of what the kill has found. When it comes too late the updater is left to
// restart the application: a process that is made by one that is killed may never begin to run.
std::size_t KillAt(const KillTime& kill_time, const RealUpdate& update) {
  constexpr Seconds kLateness(0.02);  // Of a sleep; the rest of the time is spun away.
  const auto updater = update.Start();
  while (!kill_time.sign.empty() && !fs::exists(kill_time.sign) && !IsAtItsEnd(update)) continue;
  const Clock::time_point start = Clock::now();
  while (Clock::now() - start < kill_time.delay) {
    if (Clock::now() - start < kill_time.delay - kLateness) Sleep(1);
  }
  if (IsRestarting(update)) {
    EXPECT_EQ(updater->Finish(), Exit(0));
    return kAtItsEnd;
  }
  updater->Kill();
  if (IsAtItsEnd(update)) return kAtItsEnd;
  return IsPublished(update) ? kMarkerPublished : static_cast<std::size_t>(update.SavedPhase());
}

// Which of its contents a name of the update may hold.
struct Allowed {
  bool old = true;
  bool released = false;
};

Allowed AllowedBy(const TransactionJournal& journal, std::uint64_t entry) {
  const bool under_way = entry == journal.apply && journal.intent == TransactionIntent::Apply;
  switch (journal.phase) {
    case TransactionPhase::Apply:
      return {entry >= journal.apply, entry < journal.apply || under_way};
    case TransactionPhase::Rollback:
      return {true, journal.rollback <= entry && entry <= journal.apply};
    case TransactionPhase::Committed:
      return {false, true};
    default:
      return {};
  }
}

// By the names of the update. Before the first save all are old, and with the marker all are new.
std::map<std::string, Allowed> AllowedNow(const RealUpdate& update) {
  const bool published = IsPublished(update);
  std::map<std::string, Allowed> allowed;
  const Allowed otherwise = {!published, published};
  for (const auto& [name, content] : update.contents.release) allowed[name] = otherwise;
  for (const Path& path : update.contents.deletions) allowed[NameOf(path)] = otherwise;
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  if (published || !loaded.journal) return allowed;
  for (std::uint64_t i = 0; i < loaded.journal->entries.size(); ++i) {
    allowed[NameOf(loaded.journal->entries[i].path)] = AllowedBy(*loaded.journal, i);
  }
  return allowed;
}

std::string In(const Files& files, const std::string& name) {
  const auto found = files.find(name);
  return found == files.end() ? "nothing" : "'" + found->second + "'";
}

void ExpectNothingMixed(const RealUpdate& update) {
  const Files before = update.Baseline(), after = update.Installed(), now = update.Target();
  const std::map<std::string, Allowed> allowed = AllowedNow(update);
  Files all = now;
  all.insert(before.begin(), before.end());
  all.insert(after.begin(), after.end());
  const std::string suffix = NameOf(kTemporarySuffix);
  for (const auto& [name, content] : all) {
    if (name.ends_with(suffix) && allowed.contains(name.substr(0, name.size() - suffix.size()))) {
      continue;
    }
    // What is the user's is alike in both; directories may be as in either.
    const auto rule = allowed.find(name);
    const auto [old, released] = rule != allowed.end() ? rule->second : Allowed{true, true};
    EXPECT_TRUE((old && In(now, name) == In(before, name)) ||
                (released && In(now, name) == In(after, name)))
        << name << " holds " << In(now, name) << ", old is " << In(before, name) << " (" << old
        << "), new is " << In(after, name) << " (" << released << ")";
  }
}

// Every baseline copy that the journal counts on is what was installed.
void ExpectBaselineKept(const RealUpdate& update) {
  const JournalLoadResult loaded = LoadJournal(update.layout.transaction);
  if (IsPublished(update) || !loaded.journal) return;
  for (std::uint64_t i = 0; i < loaded.journal->backup; ++i) {
    const JournalEntry& entry = loaded.journal->entries[i];
    if (!entry.baseline_exists) continue;
    const Path copy = update.layout.transaction + u"\\backup\\" + entry.path;
    EXPECT_EQ(ContentOf(copy), update.contents.installed.at(NameOf(entry.path)));
  }
}

// The marker is in one place, whole, and nothing has come near the release.
void ExpectOthersWhole(RealUpdate& update) {
  const staging::UpdateLayout& layout = update.layout;
  EXPECT_NE(fs::exists(layout.pending_marker), IsPublished(update));
  for (const Path& path :
       {layout.pending_marker, layout.completed_marker, layout.installed_manifest}) {
    EXPECT_TRUE(!fs::exists(path) || ReadBytes(path) == "{pending}") << Utf8(path);
  }
  for (const std::string& change : update.ChangesSince()) {
    EXPECT_EQ(change.find(" release/"), std::string::npos) << change;
  }
}

// How the next run has to end.
struct Ending {
  std::uint32_t code;
  std::string_view words;  // In its box.
};
constexpr Ending kInstalled = {0, ""};
constexpr Ending kRestored = {5, "The original installation was restored."};
constexpr Ending kIncomplete = {5, "rollback is incomplete"};
constexpr Ending kCorrupt = {5, "state is corrupt"};
constexpr Ending kDeferred = {7, "recognize the completed transaction"};

const Ending& NextEnding(const Scene& scene) {
  if (IsPublished(scene.update)) return kDeferred;  // There is no marker to publish any more.
  const TransactionPhase phase = scene.update.SavedPhase();
  if (phase == TransactionPhase::Corrupt) return kCorrupt;
  if (scene.hindrance == Hindrance::HeldFile) return kIncomplete;
  if (scene.hindrance == Hindrance::Obstacle) return kRestored;
  return phase == TransactionPhase::Rollback ? kRestored : kInstalled;
}

// True when there is nothing more to run for.
bool RunToTheEnding(Scene& scene) {
  RealUpdate& update = scene.update;
  const Ending& ending = NextEnding(scene);
  const std::string story = update.Run();
  EXPECT_TRUE(story.ends_with(Exit(ending.code))) << story;
  EXPECT_NE(story.find(ending.words), std::string::npos) << story;
  ExpectNothingMixed(update);
  ExpectOthersWhole(update);
  if (&ending != &kIncomplete) {
    EXPECT_EQ(update.Target(), ending.code == 5 ? update.Baseline() : update.Installed());
  }
  if (&ending == &kInstalled) {
    EXPECT_EQ(ContentOf(update.layout.completed_marker), "{pending}");
    EXPECT_EQ(ContentOf(update.layout.installed_manifest), "{pending}");
    for (const Path& path :
         {update.layout.transaction, update.layout.archive, update.layout.launched_marker}) {
      EXPECT_FALSE(fs::exists(path)) << Utf8(path);
    }
  }
  return ending.code != 5 || &ending == &kCorrupt;
}

// Some of the hindered updates are hindered once more. Without, one run at most restores.
std::size_t PlayRound(std::uint64_t seed, Hindrance hindrance, Seconds length) {
  std::mt19937_64 random(seed);
  Scene scene(hindrance);
  const std::size_t state = KillAt(DrawKillTime(random, length, scene), scene.update);
  SCOPED_TRACE(kStates[state]);
  ExpectNothingMixed(scene.update);
  ExpectBaselineKept(scene.update);
  ExpectOthersWhole(scene.update);
  if (hindrance != Hindrance::None && random() % 2 == 0) RunToTheEnding(scene);
  scene.LetGo();
  EXPECT_TRUE(RunToTheEnding(scene) || RunToTheEnding(scene));
  return state;
}

// What the kills have met: in updates that nothing hindered, and in the others.
using Table = std::array<std::array<int, 2>, kStates.size()>;

void Print(const Table& table) {
  std::printf("%-24s%10s%10s\n", "killed", "succeeding", "failing");
  for (std::size_t i = 0; i < kStates.size(); ++i) {
    std::printf("%-24s%10d%10d\n", kStates[i], table[i][0], table[i][1]);
  }
}

TEST(Killed, AnUpdateIsWholeAtAnyMomentAndTheNextRunsEndIt) {
  const std::uint64_t seed = Told("TOLVARINE_SEED", 20260301);
  const std::uint64_t kills = Told("TOLVARINE_KILLS", 26);
  const Seconds length = LengthOfARun();
  std::printf("TOLVARINE_KILLS=%llu TOLVARINE_SEED=%llu, a run takes %.2f s\n", kills, seed,
              length.count());
  Seconds lengths[] = {length, length, length};
  constexpr std::size_t kTurns[] = {0, 1, 0, 2};  // Half of them succeed.
  Table table = {};
  int inside = 0;
  for (std::uint64_t round = seed; round < seed + kills; ++round) {
    SCOPED_TRACE("TOLVARINE_KILLS=1 TOLVARINE_SEED=" + std::to_string(round));
    const std::size_t hindrance = kTurns[round % 4];
    const std::size_t state = PlayRound(round, Hindrance(hindrance), lengths[hindrance]);
    ++table[state][hindrance == 0 ? 0 : 1];
    if (state > 0 && state < kMarkerPublished) ++inside;
    // A way back takes longer, and the machine's pace changes: one kill in five is to come too late.
    lengths[hindrance] *= state == kAtItsEnd ? 0.7 : 1.1;
  }
  Print(table);
  EXPECT_TRUE(inside > 0 || kills < 10) << "no kill has met a transaction";
}

}  // namespace
}  // namespace tolvarine::updater::end_to_end
