// The invariants, held against disks and runs.

#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "crash_lab/disks.h"
#include "crash_lab/report.h"
#include "crash_lab/scenario.h"
#include "journal/journal_record.h"

namespace tolvarine::updater::crash_lab {

// What the transaction directory of a disk amounts to.
struct JournalView {
  bool directory_empty = true;  // Or missing.
  std::optional<std::uint64_t> generation{};
  TransactionPhase phase = TransactionPhase::None;  // Of the newest valid slot.
  std::u16string announced{};                       // The entry it announces, folded; may be empty.
  int slot = 0;                                     // Its number.

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
  bool abnormal = false;      // An exception left the program.
  bool changed_names = true;  // It changed something under a final name.
};

class Checker {
 public:
  // Takes the update as it was staged, before anything ran.
  explicit Checker(const simulated::SimulatedUpdate& staged);

  [[nodiscard]] JournalView JournalOf(const Image& image);

  // Leaves out what somebody else changes: every path that begins with this text, in any case and with
  // `\` as separator. Until the next call.
  void ExemptOnly(std::vector<std::u16string> prefixes);

  // True where every final name holds the same in both.
  [[nodiscard]] bool SameNames(const Image& a, const Image& b) const;

  // True once the update is final and only its cleanup is left.
  [[nodiscard]] bool MarkerMoved(const Image& image) const;

  // At every moment, and of every image that a cut leaves. `generation` is what a load would have
  // found just before the cut.
  void CheckState(const Image& image, std::optional<std::uint64_t> generation,
                  Disturbance disturbance, Figures& figures);

  // Between two moments of a run.
  void CheckChange(const Image& before, const Image& now, Figures& figures);

  // When a run has ended by itself.
  void CheckEnd(const RunEnd& end, const Image& after, Figures& figures);

  // True where the target is exactly the release, or exactly the baseline, but for bystanders.
  [[nodiscard]] bool IsInstalled(const Image& image) const;
  [[nodiscard]] bool IsBaseline(const Image& image) const;

  // The same, but a file that was to be gone may stand there whole. No write forces a removal, and
  // with the journal on another volume nothing else orders it before its count.
  [[nodiscard]] bool IsNearlyInstalled(const Image& image) const;
  [[nodiscard]] bool IsNearlyBaseline(const Image& image) const;

 private:
  // One final name: its old and its new content, null for none.
  struct FinalName {
    const std::string* old_content = nullptr;
    const std::string* new_content = nullptr;
  };
  using Content = const std::string* FinalName::*;

  // True where every final name holds this content. Where that is none, it may hold `left_over`
  // instead, unless that is null.
  [[nodiscard]] bool AllHold(const Image& image, Content content, Content left_over) const;
  [[nodiscard]] static const simulated::Bytes* Find(const Image& image, const std::u16string& key);
  [[nodiscard]] static bool Holds(const Image& image, const std::u16string& key,
                                  const std::string* content);
  [[nodiscard]] bool HasTemporary(const Image& image) const;
  void CheckFinalNames(const Image& image, Disturbance disturbance, Figures& figures);
  void CheckBystanders(const Image& image, Figures& figures);
  void CheckBaseline(const Image& image, const JournalView& journal, Figures& figures);
  void CheckJournal(const Image& image, const JournalView& journal,
                    std::optional<std::uint64_t> generation, Figures& figures);
  void CheckExecutable(const Image& image, Figures& figures);
  void CheckMarkers(const Image& image, bool committed, Figures& figures);
  void CheckTable(const RunEnd& end, const Image& after, Figures& figures);
  // What of the table of endings a run breaks, in words; empty for nothing.
  [[nodiscard]] std::string TableFault(const RunEnd& end, const Image& after) const;
  [[nodiscard]] std::string FaultOfSuccess(const RunEnd& end, const Image& after) const;
  [[nodiscard]] std::string FaultOfFailure(const RunEnd& end, const Image& after) const;
  [[nodiscard]] bool IsOfNoConcern(const std::u16string& key) const;
  [[nodiscard]] bool IsExempt(const std::u16string& key) const;

  simulated::UpdatePlan plan_;
  bool two_volumes_;
  std::u16string target_;       // Folded, with a separator at its end.
  std::u16string transaction_;  // Likewise.
  std::u16string pending_, completed_, manifest_, launched_, archive_;
  std::map<std::u16string, FinalName, PathBefore> names_;  // By their folded path below the target.
  Image bystanders_;                                       // As they were and must stay.
  std::set<std::u16string, PathBefore> own_;  // Paths that the updater makes or removes.
  std::vector<std::u16string> exempt_;        // Folded.
  std::map<std::uint64_t, std::optional<JournalView>> parsed_;  // By the text's fingerprint.
};

}  // namespace tolvarine::updater::crash_lab
