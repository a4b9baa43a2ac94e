// What the laboratory knows of an installation from having watched it, and the comparison of each
// step with that.

#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "update/verbs.h"
#include "verb_lab/invariants.h"
#include "verb_lab/laboratory.h"

namespace tolvarine::updater::verb_lab {

// X(enumerator, name)
#define VERB_LAB_VERBS(X) \
  X(Status, "status")     \
  X(Check, "check")       \
  X(Prepare, "prepare")   \
  X(Start, "start")       \
  X(Finish, "finish")     \
  X(Abandon, "abandon")   \
  X(Adopt, "adopt")

#define VERB_LAB_ENUMERATOR(enumerator, name) enumerator,
enum class Verb { VERB_LAB_VERBS(VERB_LAB_ENUMERATOR) };
#undef VERB_LAB_ENUMERATOR

[[nodiscard]] std::string_view NameOf(Verb verb);

// How one verb was called and how it ended.
struct Step {
  Verb verb{};
  const PackagedRelease* release = nullptr;  // Of check, prepare and adopt.
  std::u16string id{};                       // Of start and abandon; may be empty.
  std::uint64_t accepted_sequence = 0;       // Of check and prepare.

  bool disturbed = false;  // By anything but a lock.
  bool cut = false;        // It has not ended.
  bool locked = false;     // Somebody else has a lock.
  application::VerbResult result{};
  std::string exception{};                  // What left the verb.
  bool started = false;                     // A process was started.
  std::optional<std::int32_t> exit_code{};  // Of the updater.
};

class Checker {
 public:
  using Report = std::function<void(Invariant, const std::string&)>;

  Checker(Laboratory& laboratory, Report report);

  // What others do, before it is done: a path relative to the target, or everything.
  void SomebodyWrites(const std::u16string& key, const std::string* content);
  void FullPackage(const PackagedRelease& release);
  void StageRemoved(const std::u16string& id) { updates_[id].stage_missing = true; }
  void JournalDamaged(const std::u16string& id) { updates_[id].damaged = true; }
  // A cut on two volumes has brought these files back.
  void CameBack(const Files& files);

  void After(const Step& step, const DiskView& before, const DiskView& after);
  // At the end, after the newest release has been finished.
  void Converged(const DiskView& view, const application::InstallationStatus& status);

  [[nodiscard]] application::WorkspaceState StateOf(const std::u16string& id,
                                                    const DiskView& view) const;

 private:
  using State = application::WorkspaceState;

  // What is known of one update.
  struct Update {
    const PackagedRelease* release = nullptr;
    // What it leaves at each path that it changes, as its first preparation found it.
    std::map<std::u16string, std::optional<std::string>> lists;
    Files base;                  // The target when it was planned.
    bool written_over = false;   // Somebody else has written to the target since then.
    bool stage_missing = false;  // Somebody or an interrupted verb has removed it.
    bool damaged = false;        // Its journal, from outside.
  };

  struct Expected {
    application::Outcome outcome = application::Outcome::Done;
    application::ReasonCode reason{};  // Where the outcome is not Done.
    bool known = true;
  };

  void Require(Invariant invariant, bool holds, const std::string& what);
  void CheckResult(const Step& step, const DiskView& before);
  void CheckUnchanged(const Step& step, const DiskView& before, const DiskView& after);
  void Learn(const Step& step, const DiskView& before, const DiskView& after);
  void CheckTarget(const Step& step, const DiskView& before, const DiskView& after);
  void CheckContent(const Update& update, State state, const DiskView& before,
                    const DiskView& after);
  void RequireSame(Invariant invariant, const Files& expected, const Files& target,
                   const std::string& what);
  void CheckOneRelease(const DiskView& after);
  void CheckBaseline(const DiskView& after);
  void CheckAbandoned(const Step& step, const DiskView& before, const DiskView& after);
  void CheckLedger(const DiskView& after);
  void CheckPrepared(const std::u16string& id, const DiskView& after);
  void CheckStages(const Step& step, const DiskView& before, const DiskView& after);
  void CheckStates(const Step& step, const DiskView& before, const DiskView& after);
  void CheckStatus(const DiskView& after);
  void CheckStart(const Step& step, const DiskView& before, const DiskView& after);

  [[nodiscard]] Expected Expect(const Step& step, const DiskView& before) const;
  [[nodiscard]] Expected ExpectPrepare(const Step& step, const DiskView& before) const;
  [[nodiscard]] Expected ExpectOf(const std::u16string& id, bool (*allows)(State),
                                  const DiskView& before, std::u16string* chosen = nullptr) const;
  [[nodiscard]] bool AnyUnfinished(const DiskView& view) const;
  [[nodiscard]] const PackagedRelease* Described(const DiskView& view) const;
  [[nodiscard]] bool HoldsNothingOfOthers(const PackagedRelease& release,
                                          const DiskView& view) const;
  void Note(const PackagedRelease& release);
  [[nodiscard]] bool IsOthers(const std::u16string& key, const Files& target) const;
  [[nodiscard]] bool Holds(const PackagedRelease& release, const Files& target) const;
  [[nodiscard]] static Files AfterUpdate(const Update& update);
  void Plan(Update& update, const PackagedRelease& release, const DiskView& before) const;
  // Whether what was fixed for an update that has changed nothing is still right for the target.
  [[nodiscard]] bool StillFits(const std::u16string& id, const DiskView& view,
                               bool with_deletions) const;
  void LearnFromStart(const Step& step, const DiskView& before, const DiskView& after);
  void LearnAboutStages(const Step& step, const DiskView& before, const DiskView& after);

  Laboratory& laboratory_;
  Report report_;
  std::vector<const PackagedRelease*> releases_;
  std::map<std::u16string, Update> updates_;
  // What others have written, or nothing where they have deleted.
  using Writings = std::map<std::u16string, std::set<std::optional<std::string>>>;
  Writings others_;
  Writings came_back_;             // Likewise, by cuts on two volumes.
  std::set<std::u16string> kept_;  // Names in S\abandoned with baseline copies that are needed.
  std::uint64_t highest_ = 0;
  std::u16string highest_id_;
  // Of an adoption that was interrupted, or an update that is committed: it may have been noted.
  std::uint64_t perhaps_ = 0;
  std::uint64_t ledger_highest_ = 0;  // As last read.
};

}  // namespace tolvarine::updater::verb_lab
