// The records of a simulated machine: what is planned for its calls, who else is on it, and what
// the program asked of the person and the shell.

#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/simulated/call.h"

namespace tolvarine::updater::simulated {

// Thrown by calls once the power is cut. Not of the standard hierarchy, so that no handler for
// failures takes it for one.
struct PowerCut {};

// One call on its way in: what, which of its kind (from 1), which of all (from 1), and its path.
struct CallRecord {
  Call call{};
  std::uint64_t occurrence = 0;
  std::uint64_t index = 0;
  std::u16string path;  // The first path argument, or that of the handle; may be empty.
};

// A planned failure: the call, from which of its occurrences on (from 1), how many times, and with
// which code (a status for the hash calls).
struct Fault {
  Call call{};
  std::uint64_t first = 1;
  std::uint64_t times = 1;
  std::uint32_t code = 5;
  // Only calls whose path ends in this text (any case) count as occurrences; empty takes all.
  std::u16string path_suffix{};
  // Where set, the call moves at most this many bytes: WriteFile and fwrite then report success
  // with a short count, CopyFileW fails with `code` and leaves that many bytes at its destination.
  std::optional<std::uint32_t> partial{};
  // State: how many calls have matched.
  std::uint64_t seen = 0;
};

struct Process {
  std::uint64_t creation_time = 0;
  std::optional<std::uint64_t> exits_after_ms{};  // From the world's start; never if absent.
  std::uint32_t open_error = 0;                   // What OpenProcess fails with, if not 0.
  bool gone = false;                              // Ended, and no object is left: 87.
};

// How another process holds a mutex.
struct MutexHolder {
  std::optional<std::uint64_t> releases_after_ms{};  // From the world's start; never if absent.
  bool dies = false;                                 // Abandons the mutex instead of releasing it.
};

struct Box {
  std::u16string text;
  std::u16string title;
  std::uint32_t type = 0;
};

struct ShellStart {
  std::u16string verb;
  std::u16string file;
  std::u16string directory;
  std::int32_t show = 0;
};

// What an entry is, for a reader from outside.
struct EntryInfo {
  std::uint32_t attributes = 0;
  std::uint32_t links = 0;
  std::string content;
};

}  // namespace tolvarine::updater::simulated
