#include "update/prepare.h"

#include <algorithm>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "state/request.h"
#include "text/utf8.h"
#include "update/copying.h"
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
              std::optional<VerifiedRelease> installed, std::vector<WorkspaceStatus> workspaces,
              PreparedUpdate& prepared)
      : installation_(installation),
        request_(request),
        installed_(std::move(installed)),
        workspaces_(std::move(workspaces)),
        prepared_(prepared),
        paths_(PathsOf(installation, request.release.id)) {}

  // Finds all reasons; true where nothing refuses the update.
  bool Examine();
  // Carries it out, after Examine.
  void Carry();

 private:
  [[nodiscard]] bool RulesAllow();
  [[nodiscard]] bool HasBegun() const;
  void UseFixedSubset();
  void AbandonOthers();
  void RetireInstalled();
  void ClearReadOnly() const;

  VerbResult& result() { return prepared_.result; }

  const Installation& installation_;
  const PrepareRequest& request_;
  std::optional<VerifiedRelease> installed_;
  std::vector<WorkspaceStatus> workspaces_;
  PreparedUpdate& prepared_;
  UpdatePaths paths_;
  Difference difference_;
};

// --- Examining -----------------------------------------------------------------------------------

bool Preparation::RulesAllow() {
  if (!RequireNoUnfinished(workspaces_, result())) return false;
  const LoadedLedger ledger = LoadLedger(installation_);
  if (ledger.state == RecordState::Damaged || ledger.state == RecordState::Unreadable) {
    const bool damaged = ledger.state == RecordState::Damaged;
    Refuse(result(), damaged ? ReasonCode::LedgerDamaged : ReasonCode::SystemFailure,
           damaged ? "The ledger of the installation is damaged, so that it is not known which "
                     "releases were installed. Install the full package, then adopt."
                   : "The ledger of the installation cannot be read just now. Try again.");
    return false;
  }
  const std::string refusal = RefusalOf(ledger.ledger, request_.release.description.sequence,
                                        request_.release.id, request_.accepted_sequence);
  if (!refusal.empty()) Refuse(result(), ReasonCode::OldSequence, refusal);
  return refusal.empty();
}

const WorkspaceStatus* FindWorkspace(const std::vector<WorkspaceStatus>& workspaces,
                                     const std::u16string& id) {
  const auto found = std::ranges::find(workspaces, id, &WorkspaceStatus::id);
  return found == workspaces.end() ? nullptr : &*found;
}

// A subset was fixed for this very update, and it has not been installed.
bool Preparation::HasBegun() const {
  const WorkspaceStatus* const own = FindWorkspace(workspaces_, request_.release.id);
  if (own == nullptr) return false;
  switch (own->report.state) {
    case WorkspaceState::Prepared:
    case WorkspaceState::BackingUp:
    case WorkspaceState::Restored:
      return true;
    default:
      return false;
  }
}

// The lists of the journal, or of the request while there is no journal. A request that is damaged
// before the first start has begun nothing: the subset is then chosen anew.
void Preparation::UseFixedSubset() {
  const WorkspaceReport& report = FindWorkspace(workspaces_, request_.release.id)->report;
  if (report.journal) {
    difference_.changed.clear();
    difference_.deletions.clear();
    for (const JournalEntry& entry : report.journal->entries) {
      if (entry.kind == JournalEntryKind::Install) {
        difference_.changed.push_back({entry.path, entry.size, entry.sha256});
      } else {
        difference_.deletions.push_back(entry.path);
      }
    }
    return;
  }
  LoadedRequest loaded = LoadRequest(paths_);
  if (loaded.state != RecordState::Sound) return;
  difference_.changed = std::move(loaded.request.inventory);
  difference_.deletions = std::move(loaded.request.deletions);
}

bool Preparation::Examine() {
  if (!RulesAllow()) return false;
  difference_ = FindDifference(installation_.target, request_.release.description,
                               installed_ ? &installed_->description : nullptr, request_.progress);
  prepared_.unchanged = difference_.unchanged;
  if (HasBegun()) {
    UseFixedSubset();
  } else if (difference_.nothing_to_do) {
    Refuse(result(), ReasonCode::NothingToDo, "The installation holds this release already.");
    return false;
  }
  prepared_.staged = difference_.changed.size();
  for (const SourceInventoryEntry& row : difference_.changed) prepared_.staged_bytes += row.size;
  prepared_.deletions = difference_.deletions.size();
  Reasons reasons = FindReasons({.installation = installation_,
                                 .difference = difference_,
                                 .restart = request_.restart,
                                 .id = request_.release.id,
                                 .clear_read_only = request_.clear_read_only});
  if (Refuses(reasons)) result().outcome = Outcome::Refused;
  std::ranges::move(reasons, std::back_inserter(result().reasons));
  return result().outcome == Outcome::Done;
}

// --- Carrying out --------------------------------------------------------------------------------

void Preparation::AbandonOthers() {
  for (const WorkspaceStatus& workspace : workspaces_) {
    const WorkspaceState state = workspace.report.state;
    const bool given_up = state == WorkspaceState::Prepared || state == WorkspaceState::BackingUp ||
                          state == WorkspaceState::Restored;
    if (!given_up || workspace.id == request_.release.id) continue;
    SweepRestored(installation_, workspace);
    NoteResult(installation_, workspace.id, "abandoned");
    AbandonUpdate(installation_, workspace.id);
    prepared_.abandoned.push_back(workspace.id);
  }
}

// The same release again: what its first installation left must not be taken for this one's.
void Preparation::RetireInstalled() {
  const WorkspaceStatus* const own = FindWorkspace(workspaces_, request_.release.id);
  if (own == nullptr || own->report.state != WorkspaceState::Installed) return;
  NoteInstalled(installation_, request_.release, "installed");
  AbandonUpdate(installation_, own->id);
}

void Preparation::ClearReadOnly() const {
  if (!request_.clear_read_only) return;
  const auto clear = [&](const Path& relative) {
    const Path path = ExtendedLengthPath(JoinPath(installation_.target, relative));
    const FileHandle file(platform::CreateFileW(
        path.c_str(), platform::kFileReadAttributes | platform::kFileWriteAttributes,
        platform::kFileShareAll, platform::kOpenExisting, platform::kFileAttributeNormal));
    platform::FileBasicInfo basic;
    if (!file || !platform::GetFileInformationByHandleEx(file.get(), &basic)) return;
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

// The pending marker comes last: with it the update is prepared.
void Preparation::Carry() {
  AbandonOthers();
  RetireInstalled();
  ClearReadOnly();
  if (installed_ && installed_->id != request_.release.id) {
    KeepFormerFiles(installation_, *installed_, difference_, request_.progress);
  }
  const ReleaseDescription* const installed = installed_ ? &installed_->description : nullptr;
  UpdateRequest request{
      .target = installation_.target,
      .restart = request_.restart,
      .package = request_.package,
      .source = {},
      .inventory = difference_.changed,
      .deletions = difference_.deletions,
      .updater = CopyProgram(installation_, request_.updater, kUpdaterName, installed),
      .resumer = CopyProgram(installation_, request_.resumer, kResumerName, installed)};
  request.source = StageRelease(paths_, request_.package, request.inventory, request_.progress);
  SaveRequest(paths_, request);
  WriteFileDurably(paths_.release, request_.release.envelope);
  WriteFileDurably(paths_.pending, request_.release.envelope);
}

PreparedUpdate Run(const Installation& installation, const PrepareRequest& request,
                   std::span<const PublicKey> keys, bool carry) {
  return UnderLocks<PreparedUpdate>(
      installation,
      [&](InstallationLocks&, std::vector<WorkspaceStatus> workspaces, PreparedUpdate& prepared) {
        Preparation preparation(installation, request, ReadInstalledRelease(installation, keys),
                                std::move(workspaces), prepared);
        if (preparation.Examine() && carry) preparation.Carry();
      });
}

}  // namespace

PreparedUpdate PrepareUnderLocks(const Installation& installation, const PrepareRequest& request,
                                 const std::optional<VerifiedRelease>& installed,
                                 const std::vector<WorkspaceStatus>& workspaces) {
  PreparedUpdate prepared;
  Preparation preparation(installation, request, installed, workspaces, prepared);
  if (preparation.Examine()) preparation.Carry();
  return prepared;
}

PreparedUpdate Check(const Installation& installation, const PrepareRequest& request,
                     std::span<const PublicKey> keys) {
  return Run(installation, request, keys, false);
}

PreparedUpdate Prepare(const Installation& installation, const PrepareRequest& request,
                       std::span<const PublicKey> keys) {
  return Run(installation, request, keys, true);
}

}  // namespace tolvarine::updater::application
