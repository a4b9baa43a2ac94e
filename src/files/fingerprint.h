// Fingerprints of files that are already in the installation or in the backup. They detect that a
// file is not what was recorded; they hold no writer off, follow links and authenticate nothing.

#pragma once

#include <cstdint>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The FNV-1a of a file's bytes. Throws std::runtime_error for a file that cannot be opened or read.
[[nodiscard]] std::uint64_t Fnv1aOfFile(const Path& path);

// Returns when the path names a regular file of this size (in bytes) and fingerprint. Otherwise
// throws std::runtime_error "<label> failed verification: <path>", or what Fnv1aOfFile throws.
void VerifyFileFingerprint(const Path& path, std::uint64_t size, std::uint64_t fnv1a,
                           std::string_view label);

}  // namespace tolvarine::updater
