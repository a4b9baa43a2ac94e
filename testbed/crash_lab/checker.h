// The invariants: what must hold for the disks at every state, and for a run at its end.

#pragma once

#include <array>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "crash_lab/disks.h"
#include "crash_lab/report.h"
#include "crash_lab/scenario.h"
#include "crash_lab/workspace_reader.h"
#include "journal/journal_record.h"

namespace tolvarine::updater::crash_lab {

// What a transaction directory says. All but the first two members are those of the newest valid
// slot.
struct JournalView {
  bool directory_empty = true;  // Or missing.
  // The program's reader and the checker's own find the same in every slot.
  bool readers_agree = true;
  std::optional<std::uint64_t> generation{};
  TransactionPhase phase = TransactionPhase::None;
  std::u16string announced{};  // The path of the entry that it announces, folded; may be empty.
  bool in_turn = true;         // It announces nothing, or the entry at the phase's counter.
  int slot = 0;                // Its number.
  bool all_applied = false;    // Every entry is counted.
  bool of_this_target = true;  // It names the installation that is updated.

  [[nodiscard]] bool IsCorrupt() const { return !directory_empty && !generation; }
};

// How a run ended.
struct RunEnd {
  EntryPoint entry_point = EntryPoint::kMainSequence;
  std::int32_t exit_code = 0;                        // Of the main sequence.
  TransactionPhase status = TransactionPhase::None;  // Of the engine, entered by itself.
  std::vector<simulated::Box> boxes;
  std::vector<simulated::ShellStart> starts;
  std::string log_before;
  std::string log_after;
  std::size_t open_handles = 0;
  Disturbance disturbance = Disturbance::kNone;
  TransactionPhase found = TransactionPhase::None;  // In the journal that it started on.
  // No removal and no query was disturbed: at most one write, flush, copy or move failed, once.
  bool cleanup_undisturbed = true;
  bool abnormal = false;      // An exception left the program.
  bool changed_names = true;  // It changed something under a final name.
};

class Checker {
 public:
  // Takes the update as it was staged, before anything ran.
  explicit Checker(const simulated::SimulatedUpdate& staged);

  [[nodiscard]] JournalView JournalOf(const Image& image);

  // From here on paths that begin with one of these prefixes (in any case, with `\` as separator)
  // are not checked, because somebody else changes them. Replaces the prefixes given before. Call
  // before the changes are made.
  void ExemptOnly(std::vector<std::u16string> prefixes);

  // Call before a run, with the disks that it starts on. What is broken there already is not
  // reported for the states of this run.
  void StartRun(const Image& image, Disturbance disturbance);

  // True where every final name holds the same in both.
  [[nodiscard]] bool SameNames(const Image& a, const Image& b) const;

  // True once the update is final and only its cleanup is left.
  [[nodiscard]] bool MarkerMoved(const Image& image) const;

  // Checks a state of a run, or what a power cut leaves of it. `generation` is what a load finds
  // in the state, before the cut.
  void CheckState(const Image& image, std::optional<std::uint64_t> generation,
                  Disturbance disturbance, Figures& figures);

  // Checks what the application's library says of a state of a run, of its end or of what a power
  // cut leaves of either.
  void CheckWorkspace(const Image& image, const WorkspaceReading& reading, Disturbance disturbance,
                      Figures& figures);

  // Checks the change from one state of a run to the next.
  void CheckChange(const Image& before, const Image& now, Figures& figures);

  // Checks a run by how it ended and by the disks that it left.
  void CheckEnd(const RunEnd& end, const Image& after, Figures& figures);

  // Checks what a power cut directly after the end of the run leaves: what the exit code promised
  // still holds. For a medium that keeps what it is asked to force.
  void CheckCutAfterEnd(const RunEnd& end, const Image& after, const Image& left, Figures& figures);

  // True where the target is exactly the release, or exactly the baseline, foreign files aside.
  [[nodiscard]] bool IsInstalled(const Image& image) const;
  [[nodiscard]] bool IsBaseline(const Image& image) const;

  // The same, but on two volumes a file that was to be removed may be there, whole: no write forces
  // a removal, and with the journal on another volume nothing orders it before its count.
  [[nodiscard]] bool IsNearlyInstalled(const Image& image) const;
  [[nodiscard]] bool IsNearlyBaseline(const Image& image) const;

 private:
  // One final name: its old and its new content, null for none.
  struct FinalName {
    const std::string* old_content = nullptr;
    const std::string* new_content = nullptr;
    std::uint32_t old_attributes = 0;
  };
  using Content = const std::string* FinalName::*;

  struct ParsedSlot {
    std::optional<JournalView> view{};
    bool readers_agree = true;
  };
  // The bytes are held, so that no others come to have their address.
  struct LastParsed {
    simulated::Bytes text;
    const ParsedSlot* slot = nullptr;
  };
  enum class Presence { kNone, kPossible, kCertain };

  [[nodiscard]] ParsedSlot ParseSlot(const std::string& text) const;
  const ParsedSlot& Parsed(const simulated::Bytes& text, LastParsed& last);

  // True where every final name holds this content. Where that is none, it may hold `left_over`
  // instead, unless that is null.
  [[nodiscard]] bool AllHold(const Image& image, Content content, Content left_over) const;
  [[nodiscard]] static const simulated::Bytes* Find(const Image& image, const std::u16string& key);
  [[nodiscard]] static bool Holds(const Image& image, const std::u16string& key,
                                  const std::string* content);
  [[nodiscard]] bool IsWhole(const Image& image, const std::u16string& key,
                             const FinalName& name) const;
  [[nodiscard]] bool HasTemporary(const Image& image) const;
  [[nodiscard]] std::u16string LeftoverDirectory(const Image& image) const;
  void NotePlanned(const Image& image);
  void CheckInvariants(const Image& image, std::optional<std::uint64_t> generation,
                       Disturbance disturbance, Figures& figures);
  void CheckFinalNames(const Image& image, Disturbance disturbance, Figures& figures);
  void CheckBystanders(const Image& image, Figures& figures);
  void CheckBaseline(const Image& image, const JournalView& journal, Figures& figures);
  void CheckJournal(const Image& image, const JournalView& journal,
                    std::optional<std::uint64_t> generation, Figures& figures);
  void CheckExecutable(const Image& image, Figures& figures);
  void CheckMarkers(const Image& image, bool committed, Figures& figures);
  void CheckWorkspaceFiles(const Image& image, Figures& figures);
  [[nodiscard]] application::WorkspaceState StateByTheDisk(const Image& image,
                                                           const JournalView& journal) const;
  [[nodiscard]] Presence ForeignContent(const Image& image, Disturbance disturbance) const;
  [[nodiscard]] bool IsTrue(application::InstallationContent content, const Image& image) const;
  void CheckLeftovers(const RunEnd& end, const Image& after, Figures& figures);
  // How a run contradicts the table of endings, in words; empty where it does not.
  [[nodiscard]] std::string TableFault(const RunEnd& end, const Image& after) const;
  [[nodiscard]] std::string FaultOfExitCode(const RunEnd& end, const Image& after) const;
  [[nodiscard]] bool IsRightRestart(const RunEnd& end) const;
  [[nodiscard]] std::string FaultOfSuccess(const RunEnd& end, const Image& after) const;
  [[nodiscard]] std::string FaultOfFailure(const RunEnd& end, const Image& after) const;
  [[nodiscard]] bool IsOfNoConcern(const std::u16string& key) const;
  [[nodiscard]] bool IsExempt(const std::u16string& key) const;

  simulated::UpdatePlan plan_;
  bool two_volumes_;
  std::u16string target_;       // Folded, with a separator at its end.
  std::u16string transaction_;  // Likewise.
  std::u16string pending_, completed_, manifest_, launched_, archive_;
  simulated::ShellStart restart_;                          // What a run that installs must start.
  std::map<std::u16string, FinalName, PathBefore> names_;  // By their folded path below the target.
  Image bystanders_;                                       // As staged; none may change.
  std::set<std::u16string, PathBefore> directories_;       // Of the installation before.
  std::set<std::u16string, PathBefore> own_;  // Paths that the updater makes or removes.
  std::vector<std::u16string> exempt_;        // Folded.
  // Of the exempt final names, what they held when a run started that had to make the plan.
  std::map<std::u16string, simulated::Bytes> planned_;
  std::set<std::pair<Invariant, std::string>> found_broken_;  // By the run that was started last.
  std::map<std::size_t, ParsedSlot> parsed_;                  // By the hash of the text.
  std::array<LastParsed, 2> last_parsed_;                     // By slot.
};

}  // namespace tolvarine::updater::crash_lab
