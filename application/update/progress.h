// Progress of a long verb, and how it is cancelled.

#pragma once

#include <cstdint>
#include <functional>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

enum class ProgressStep {
  Comparing,  // Hashing the installation against the description.
  Staging,    // Copying what differs.
  Keeping,    // Copying what will be replaced, for the way back.
};

struct Progress {
  ProgressStep step{};
  std::uint64_t done = 0;   // Bytes of this step.
  std::uint64_t total = 0;  // Likewise; known from its beginning.
  PathView file{};          // The file at hand, relative; may be empty.
};

// Called from the verb's own thread, at least once for each file and for each 64 KiB. False
// cancels: the verb then ends with ReasonCode::Cancelled, and what it has made stays for the next
// attempt. An exception passes through in the same way.
using ProgressCallback = std::function<bool(const Progress&)>;

}  // namespace tolvarine::updater::application
