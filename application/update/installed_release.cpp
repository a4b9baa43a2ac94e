#include "update/installed_release.h"

#include <algorithm>

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "reasons/verb_failure.h"
#include "release/file_bytes.h"
#include "system/volumes.h"

namespace tolvarine::updater::application {
namespace {

// Zeros where the volume does not know them.
platform::FileIdentity IdentityOf(const Path& directory) {
  const FileHandle handle(platform::CreateFile2(directory.c_str(), platform::kFileReadAttributes,
                                                platform::kFileShareAll, platform::kOpenExisting,
                                                platform::kFileFlagBackupSemantics));
  platform::FileIdentity identity;
  if (handle) platform::GetFileInformationByHandle(handle.get(), &identity);
  return identity;
}

}  // namespace

std::optional<VerifiedRelease> ReadInstalledRelease(const Installation& installation,
                                                    std::span<const PublicKey> keys) {
  const Path manifest = InstalledManifestOf(installation);
  if (QueryLinkStatus(manifest).kind == FileKind::not_found) return std::nullopt;
  try {
    return ReadRelease(manifest, keys);
  } catch (const UnsoundRelease&) {
    return std::nullopt;
  }
}

std::vector<VerifiedRelease> InstalledUpdates(const Installation& installation,
                                              const std::vector<WorkspaceStatus>& workspaces) {
  std::vector<VerifiedRelease> releases;
  for (const WorkspaceStatus& workspace : workspaces) {
    if (workspace.report.state != WorkspaceState::Installed) continue;
    try {
      releases.push_back(
          ReadReleaseOfUpdate(PathsOf(installation, workspace.id).completed, workspace.id));
    } catch (const UnsoundRelease&) {
      // Somebody has changed the marker, which says nothing any more.
    }
  }
  const Path manifest = InstalledManifestOf(installation);
  if (releases.size() < 2 || QueryLinkStatus(manifest).kind != FileKind::regular) return releases;
  const std::string last = ReadFileBytes(manifest, kEnvelopeByteLimit);
  std::stable_partition(releases.begin(), releases.end(),
                        [&](const VerifiedRelease& release) { return release.envelope != last; });
  return releases;
}

Ledger RequireLedger(const Installation& installation) {
  LoadedLedger loaded = LoadLedger(installation);
  if (loaded.state == RecordState::Damaged) {
    throw VerbFailure(ReasonCode::LedgerDamaged,
                      "The ledger of the installation is damaged, so that it is not known which "
                      "releases were installed. Install the full package, then adopt.");
  }
  if (loaded.state == RecordState::Unreadable) {
    throw VerbFailure(ReasonCode::SystemFailure,
                      "The ledger of the installation cannot be read just now. Try again.");
  }
  return std::move(loaded.ledger);
}

void CountInstalled(const VerifiedRelease& release, Ledger& ledger) {
  if (release.description.sequence >= ledger.highest_sequence) {
    ledger.highest_sequence = release.description.sequence;
    ledger.highest_id = release.id;
  }
  // A release that a person accepts by name is one that nobody has gone back from any more.
  std::erase(ledger.gone_back_from, release.id);
}

void NoteInstalled(const Installation& installation, const VerifiedRelease& release,
                   std::string outcome) {
  const bool adopted = outcome == "adopted";
  const bool damaged = LoadLedger(installation).state == RecordState::Damaged;
  Ledger ledger = adopted && damaged ? Ledger{} : RequireLedger(installation);
  CountInstalled(release, ledger);
  ledger.target = installation.target;
  const platform::FileIdentity identity = IdentityOf(installation.target);
  ledger.volume_serial = identity.volume_serial_number;
  ledger.file_index = identity.file_index;
  ledger.last = {release.id, std::move(outcome)};
  SaveLedger(installation, ledger);
}

void NoteResult(const Installation& installation, const std::u16string& id, std::string outcome) {
  if (LoadLedger(installation).state == RecordState::Damaged) return;
  Ledger ledger = RequireLedger(installation);
  ledger.last = {id, std::move(outcome)};
  SaveLedger(installation, ledger);
}

}  // namespace tolvarine::updater::application
