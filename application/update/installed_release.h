// The description of what is installed.

#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "release/signed_release.h"
#include "state/ledger.h"
#include "state/state_directory.h"
#include "update/verbs.h"

namespace tolvarine::updater::application {

// The installed manifest, verified. Nothing where there is none, or none that any of the keys has
// signed: the installation then counts as one without a description. Throws SystemError where it is
// there and cannot be read.
[[nodiscard]] std::optional<VerifiedRelease> ReadInstalledRelease(const Installation& installation,
                                                                  std::span<const PublicKey> keys);

// The releases of the updates that are installed and not finished. The one whose signed release is
// the installed manifest was the last and comes last. An update whose completed marker is not sound
// is left out. Throws SystemError where a marker cannot be read.
[[nodiscard]] std::vector<VerifiedRelease> InstalledUpdates(
    const Installation& installation, const std::vector<WorkspaceStatus>& workspaces);

// The ledger, or a fresh one where there is none. Throws VerbFailure where it is damaged or cannot
// be read just now.
[[nodiscard]] Ledger RequireLedger(const Installation& installation);

// Counts a release as installed, in memory alone.
void CountInstalled(const VerifiedRelease& release, Ledger& ledger);

// Notes an installed release in the ledger, with the target's volume and file id. A damaged ledger
// is replaced where the outcome is "adopted". Throws as RequireLedger and SaveLedger do.
void NoteInstalled(const Installation& installation, const VerifiedRelease& release,
                   std::string outcome);

// Notes how an update ended without being installed, unless the ledger is damaged. Throws likewise.
void NoteResult(const Installation& installation, const std::u16string& id, std::string outcome);

}  // namespace tolvarine::updater::application
