#include <algorithm>

#include "driver/request_validation.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "lists/release_path.h"
#include "platform/files.h"
#include "state/request.h"
#include "text/utf8.h"
#include "update/copying.h"
#include "update/fixed_subset.h"
#include "update/installed_release.h"
#include "update/preflight.h"
#include "update/retire.h"
#include "update/session.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {
namespace {

class Preparation {
 public:
  Preparation(const Installation& installation, const PrepareRequest& request,
              std::span<const PublicKey> keys, std::vector<WorkspaceStatus> workspaces,
              PreparedUpdate& prepared)
      : installation_(installation),
        request_(request),
        keys_(keys),
        workspaces_(std::move(workspaces)),
        prepared_(prepared),
        paths_(PathsOf(installation, request.release.id)) {}

  // Finds all reasons; true where nothing refuses the update.
  bool Examine();
  // Carries it out, after Examine.
  void Carry();

 private:
  [[nodiscard]] bool RulesAllow();
  [[nodiscard]] bool LocatePackage();
  void CheckRestart(Reasons& reasons) const;
  // True for an update from a described release to another one, which has a way back.
  [[nodiscard]] bool Replaces() const {
    return installed_ && installed_->id != request_.release.id;
  }
  void UseFixedSubset();
  void SettleOthers();
  void RetireOwn();
  void ClearReadOnly() const;

  VerbResult& result() { return prepared_.result; }

  const Installation& installation_;
  const PrepareRequest& request_;
  std::span<const PublicKey> keys_;
  std::vector<WorkspaceStatus> workspaces_;
  PreparedUpdate& prepared_;
  UpdatePaths paths_;
  Path package_;  // Canonical.
  std::optional<VerifiedRelease> installed_;
  Difference difference_;
  const WorkspaceStatus* own_ = nullptr;  // Of the same update; null where there is none.
  bool begun_ = false;                    // Its subset was fixed, and holds.
};

// --- Examining -----------------------------------------------------------------------------------

bool Preparation::RulesAllow() {
  if (!RequireNoUnfinished(workspaces_, result())) return false;
  Ledger ledger = RequireLedger(installation_);
  for (const VerifiedRelease& release : InstalledUpdates(installation_, workspaces_)) {
    CountInstalled(release, ledger);
  }
  // What is installed may be prepared again, to replace what differs.
  if (installed_ && installed_->id == request_.release.id) return true;
  const std::string refusal = RefusalOf(ledger, request_.release.description.sequence,
                                        request_.release.id, request_.accepted_sequence);
  if (!refusal.empty()) Refuse(result(), ReasonCode::OldSequence, refusal);
  return refusal.empty();
}

// The only place in the state directory where a package may lie is its own stage.
bool Preparation::LocatePackage() {
  std::uint32_t code = 0;
  package_ = WeaklyCanonicalize(request_.package, code);
  if (code != 0) throw FilesystemError("canonicalize", code, request_.package);
  if (!IsPathWithin(package_, installation_.state) || SamePathKey(package_, paths_.stage)) {
    return true;
  }
  Refuse(result(), ReasonCode::PathsOverlap,
         "The package " + Quoted(package_) +
             " lies in the state directory. Unpack it elsewhere, or at " + Quoted(paths_.stage) +
             ".",
         package_);
  return false;
}

// What is started after the update has to be there then.
void Preparation::CheckRestart(Reasons& reasons) const {
  const Path& restart = request_.restart;
  const bool full = IsAbsolutePath(restart);
  const bool inside = !full || IsPathWithin(restart, installation_.target);
  bool found = false;
  if (inside) {
    const std::u16string key =
        PathCompareKey(full ? LexicallyRelative(restart, installation_.target) : PathView(restart));
    found = std::ranges::any_of(request_.release.description.files,
                                [&](const auto& row) { return PathCompareKey(row.path) == key; });
  } else {
    found = QueryStatus(restart).kind == FileKind::regular;
  }
  if (found) return;
  reasons.push_back({ReasonCode::BadRestart,
                     "The program " + Quoted(restart) +
                         " that is to be started after the update is neither a file of the release "
                         "nor a program elsewhere. Name another one.",
                     restart});
}

// Takes the subset that was fixed for this very update, where it has changed nothing and still
// holds.
void Preparation::UseFixedSubset() {
  const auto own = std::ranges::find(workspaces_, request_.release.id, &WorkspaceStatus::id);
  own_ = own == workspaces_.end() ? nullptr : &*own;
  if (own_ == nullptr || !HasChangedNothing(own_->report.state)) return;
  std::optional<FixedSubset> subset = FixedSubsetOf(paths_, own_->report);
  begun_ = subset && FindDeviation(installation_.target, own_->report, *subset, difference_,
                                   /*with_deletions=*/true)
                         .empty();
  if (!begun_) return;
  difference_.changed = std::move(subset->inventory);
  difference_.deletions = std::move(subset->deletions);
}

bool Preparation::Examine() {
  installed_ = ReadInstalledRelease(installation_, keys_);
  if (!RulesAllow() || !LocatePackage()) return false;
  difference_ = FindDifference(installation_.target, request_.release.description,
                               installed_ ? &installed_->description : nullptr, request_.progress);
  prepared_.unchanged = difference_.unchanged;
  UseFixedSubset();
  if (!begun_ && difference_.nothing_to_do) {
    Refuse(result(), ReasonCode::NothingToDo, "The installation holds this release already.");
    return false;
  }
  prepared_.staged = difference_.changed.size();
  for (const SourceInventoryEntry& row : difference_.changed) prepared_.staged_bytes += row.size;
  prepared_.deletions = difference_.deletions.size();
  const SourceInventory& files = difference_.changed;
  const std::uint64_t kept =
      Replaces() ? BytesToKeep(installation_, installed_->description, difference_) : 0;
  Reasons reasons = FindReasons({.installation = installation_,
                                 .difference = difference_,
                                 .restart = request_.restart,
                                 .source = paths_.stage,
                                 .bytes_to_stage = BytesToStage(paths_, package_, files),
                                 .bytes_to_keep = kept,
                                 .id = request_.release.id,
                                 .clear_read_only = request_.clear_read_only});
  try {
    RequireUpdater(installation_, request_.updater,
                   installed_ ? &installed_->description : nullptr);
  } catch (const VerbFailure& failure) {
    reasons.push_back(failure.reason());
  }
  CheckRestart(reasons);
  if (Refuses(reasons)) result().outcome = Outcome::Refused;
  std::ranges::move(reasons, std::back_inserter(result().reasons));
  return result().outcome == Outcome::Done;
}

// --- Carrying out --------------------------------------------------------------------------------

// What has been installed is noted first, so that the last result is the one of an update that was
// given up, whose baseline copies then stay.
void Preparation::SettleOthers() {
  for (const VerifiedRelease& release : InstalledUpdates(installation_, workspaces_)) {
    NoteInstalled(installation_, release, "installed");
  }
  for (const WorkspaceStatus& workspace : workspaces_) {
    if (&workspace == own_) continue;
    if (HasChangedNothing(workspace.report.state)) {
      SweepRestored(installation_, workspace);
      NoteResult(installation_, workspace.id, "abandoned");
      prepared_.abandoned.push_back(workspace.id);
    }
    AbandonUpdate(installation_, workspace.id);
  }
  // Preparations that were refused or cut off have left stages without a workspace.
  RemoveAllBut(JoinPath(installation_.state, u"s"), {std::u16string(LastComponent(paths_.stages))});
}

// What an earlier life of the same update has left must not be taken for this one's. The stage
// stays: it is made already.
void Preparation::RetireOwn() {
  if (own_ == nullptr || begun_) return;
  SweepRestored(installation_, *own_);
  MoveToAbandoned(installation_, paths_.workspace);
}

void Preparation::ClearReadOnly() const {
  if (!request_.clear_read_only) return;
  const auto clear = [&](const Path& relative) {
    const Path path = ExtendedLengthPath(JoinPath(installation_.target, relative));
    const FileHandle file(platform::CreateFileW(
        path.c_str(), platform::kFileReadAttributes | platform::kFileWriteAttributes,
        platform::kFileShareAll, platform::kOpenExisting, platform::kFileAttributeNormal));
    platform::FileBasicInfo basic;
    if (!file && IsNotFoundError(platform::GetLastError())) return;
    if (!file || !platform::GetFileInformationByHandleEx(file.get(), &basic)) {
      throw FilesystemError("clear read-only", platform::GetLastError(), path);
    }
    if ((basic.attributes & platform::kFileAttributeReadonly) == 0) return;
    basic.attributes &= ~platform::kFileAttributeReadonly;
    if (basic.attributes == 0) basic.attributes = platform::kFileAttributeNormal;
    if (!platform::SetFileInformationByHandle(file.get(), basic)) {
      throw FilesystemError("clear read-only", platform::GetLastError(), path);
    }
  };
  for (const SourceInventoryEntry& row : difference_.changed) clear(row.path);
  for (const Path& path : difference_.deletions) clear(path);
}

// What can fail by the package or by the updater comes before anything that others see. The pending
// marker comes last: with it the update is prepared.
void Preparation::Carry() {
  UpdateRequest request{.target = installation_.target,
                        .package = package_,
                        .restart = request_.restart,
                        .source = {},
                        .inventory = difference_.changed,
                        .deletions = difference_.deletions,
                        .updater = CopyUpdater(installation_, request_.updater,
                                               installed_ ? &installed_->description : nullptr)};
  // With another stage, an update that no longer fits must not stand there as prepared.
  if (own_ != nullptr && HasChangedNothing(own_->report.state)) RetireOwn();
  request.source = StageRelease(paths_, package_, request.inventory, request_.progress);
  if (Replaces()) {
    KeepFormerFiles(installation_, *installed_, difference_, request_.progress);
  }
  SettleOthers();
  RetireOwn();
  ClearReadOnly();
  SaveRequest(paths_, request);
  WriteFileDurably(paths_.release, request_.release.envelope);
  WriteFileDurably(paths_.pending, request_.release.envelope);
}

PreparedUpdate Run(const Installation& installation, const PrepareRequest& request,
                   std::span<const PublicKey> keys, bool carry) {
  return UnderLocks<PreparedUpdate>(
      installation,
      [&](InstallationLocks&, std::vector<WorkspaceStatus> workspaces, PreparedUpdate& prepared) {
        Preparation preparation(installation, request, keys, std::move(workspaces), prepared);
        if (preparation.Examine() && carry) preparation.Carry();
      });
}

}  // namespace

PreparedUpdate Check(const Installation& installation, const PrepareRequest& request,
                     std::span<const PublicKey> keys) {
  return Run(installation, request, keys, false);
}

PreparedUpdate Prepare(const Installation& installation, const PrepareRequest& request,
                       std::span<const PublicKey> keys) {
  return Run(installation, request, keys, true);
}

}  // namespace tolvarine::updater::application
