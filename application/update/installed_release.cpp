#include "update/installed_release.h"

#include <stdexcept>

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "system/volumes.h"
#include "update/verb_failure.h"

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
  } catch (const BadRelease&) {
    return std::nullopt;
  }
}

Ledger ReadLedger(const Installation& installation) {
  LoadedLedger loaded = LoadLedger(installation);
  if (loaded.state == RecordState::Unreadable) {
    throw VerbFailure(ReasonCode::SystemFailure,
                      "The ledger of the installation cannot be read just now. Try again.");
  }
  if (loaded.state == RecordState::Damaged) {
    throw VerbFailure(ReasonCode::LedgerDamaged,
                      "The ledger of the installation is damaged, so that it is not known which "
                      "releases were installed. Install the full package, then adopt.");
  }
  return std::move(loaded.ledger);
}

void Include(Ledger& ledger, const VerifiedRelease& release) {
  if (release.description.sequence < ledger.highest_sequence) return;
  ledger.highest_sequence = release.description.sequence;
  ledger.highest_id = release.id;
}

void NoteInstalled(const Installation& installation, Ledger ledger, const VerifiedRelease& release,
                   std::string outcome) {
  Include(ledger, release);
  // A release that a person accepts by name is one that nobody has gone back from any more.
  std::erase(ledger.gone_back_from, release.id);
  ledger.target = installation.target;
  const platform::FileIdentity identity = IdentityOf(installation.target);
  ledger.volume_serial = identity.volume_serial_number;
  ledger.file_index = identity.file_index;
  ledger.last = {release.id, std::move(outcome)};
  SaveLedger(installation, ledger);
}

void NoteResult(const Installation& installation, const std::u16string& id, std::string outcome) {
  Ledger ledger = ReadLedger(installation);
  ledger.last = {id, std::move(outcome)};
  SaveLedger(installation, ledger);
}

}  // namespace tolvarine::updater::application
