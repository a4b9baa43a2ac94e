// The description of what is installed.

#pragma once

#include <optional>
#include <span>

#include "release/signed_release.h"
#include "state/ledger.h"
#include "state/state_directory.h"

namespace tolvarine::updater::application {

// The installed manifest, verified. Nothing where there is none, or none that any of the keys has
// signed: the installation then counts as one without a description. Throws SystemError where it is
// there and cannot be read.
[[nodiscard]] std::optional<VerifiedRelease> ReadInstalledRelease(const Installation& installation,
                                                                  std::span<const PublicKey> keys);

// Notes an installed release in the ledger, with the target's volume and file id. Throws as SaveLedger
// does.
void NoteInstalled(const Installation& installation, const VerifiedRelease& release,
                   std::string outcome);

// Notes how an update ended without being installed.
void NoteResult(const Installation& installation, const std::u16string& id, std::string outcome);

}  // namespace tolvarine::updater::application
