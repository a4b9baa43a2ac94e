#include "update/installed_release.h"

#include <stdexcept>

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "system/volumes.h"
#include "text/system_error.h"

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
  } catch (const SystemError&) {
    throw;
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

void NoteInstalled(const Installation& installation, const VerifiedRelease& release,
                   std::string outcome) {
  Ledger ledger = LoadLedger(installation).ledger;
  if (release.description.sequence >= ledger.highest_sequence) {
    ledger.highest_sequence = release.description.sequence;
    ledger.highest_id = release.id;
  }
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
  LoadedLedger loaded = LoadLedger(installation);
  if (loaded.state == RecordState::Damaged || loaded.state == RecordState::Unreadable) return;
  loaded.ledger.last = {id, std::move(outcome)};
  SaveLedger(installation, loaded.ledger);
}

}  // namespace tolvarine::updater::application
