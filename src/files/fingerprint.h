// Fingerprints of files in the installation and in the backup. They detect that a file is not what
// was recorded; they do not authenticate it. Links are followed, and other programs may write to
// the file meanwhile.

#pragma once

#include <cstdint>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater {

// The FNV-1a hash of a file's bytes. Throws std::runtime_error if it cannot be opened or read.
[[nodiscard]] std::uint64_t Fnv1aOfFile(const Path& path);

// Checks that the path names a regular file of this size, in bytes, and with this fingerprint. If
// not, throws std::runtime_error "<label> failed verification: <path>", or what Fnv1aOfFile throws.
void VerifyFileFingerprint(const Path& path, std::uint64_t size, std::uint64_t fnv1a,
                           std::string_view label);

}  // namespace tolvarine::updater
