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
// there and cannot be read, and std::runtime_error where it cannot be verified just now.
[[nodiscard]] std::optional<VerifiedRelease> ReadInstalledRelease(const Installation& installation,
                                                                  std::span<const PublicKey> keys);

// The ledger, fresh where there is none. Throws VerbFailure where it is damaged (LedgerDamaged) or
// cannot be read just now (SystemFailure): what it holds is not to be forgotten.
[[nodiscard]] Ledger ReadLedger(const Installation& installation);

// Raises the highest sequence of a ledger to that of a release that has been installed.
void Include(Ledger& ledger, const VerifiedRelease& release);

// Saves `ledger` with an installed release noted in it, and the target's volume and file id. Throws
// as SaveLedger does.
void NoteInstalled(const Installation& installation, Ledger ledger, const VerifiedRelease& release,
                   std::string outcome);

// Notes how an update ended without being installed. Throws as ReadLedger and SaveLedger do.
void NoteResult(const Installation& installation, const std::u16string& id, std::string outcome);

}  // namespace tolvarine::updater::application
