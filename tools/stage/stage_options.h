// The command line of TolvarineStage: a command, then options with their values.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "staging/staging.h"

namespace tolvarine::updater::stage {

enum class Command { kHelp, kCheck, kStage };

struct StageOptions {
  Command command = Command::kHelp;
  staging::StagingRequest request{};  // Identifiers that were left out are empty.
  Path previous{};                    // --previous: an earlier release; empty without one.
  Path updater{};                     // --updater; empty for the one beside this program.
  std::uint32_t wait_pid = 0;
  std::uint64_t wait_process_created_at = 0;
  bool print = false;
  bool run = false;
  bool without_wait = false;
};

// The result of ParseOptions: the options, or one line with the reason of a refusal.
struct ParsedOptions {
  std::optional<StageOptions> options{};
  std::string refusal{};
};

// Parses the arguments after the program's own name.
[[nodiscard]] ParsedOptions ParseOptions(const std::vector<std::u16string_view>& arguments);

inline constexpr std::string_view kHelpText =
    "TolvarineStage lays out an update and starts the updater on it.\n"
    "\n"
    "  TolvarineStage check --release DIR [--previous DIR] [--delete PATH]...\n"
    "                       [--target DIR --state DIR]\n"
    "  TolvarineStage stage --release DIR --target DIR --state DIR\n"
    "                       [--previous DIR] [--delete PATH]... [--restart PATH]\n"
    "                       [--install-key K] [--update-id U] [--updater EXE]\n"
    "                       [--wait-pid N --wait-process-created-at T | --without-wait]\n"
    "                       (--print | --run)\n"
    "\n"
    "check says what is wrong with a release that cannot be updated to; with the directories of\n"
    "an installation also which paths become too long in it. stage checks, copies the release to\n"
    "its stage, writes both lists and the pending marker, and prints the updater's command line\n"
    "or runs it.\n"
    "\n"
    "  --release DIR      the new release\n"
    "  --target DIR       the installation\n"
    "  --state DIR        the directory that holds the state of all installations\n"
    "  --previous DIR     an earlier release: its files that the new one lacks are deleted\n"
    "  --delete PATH      a file of the installation to delete; may be given more than once\n"
    "  --restart PATH     what to start afterwards (Tolvarine.exe)\n"
    "  --install-key K    64 digits 0-9 a-f; made up and told if left out\n"
    "  --update-id U      the same\n"
    "  --updater EXE      the updater (TolvarineUpdater.exe beside this program)\n"
    "  --wait-pid N, --wait-process-created-at T\n"
    "                     the process whose end the updater waits for, and its creation time\n"
    "  --without-wait     leaves the wait options out, for a starter that appends its own\n"
    "  --print            prints the command line, as UTF-8\n"
    "  --run              starts the updater, waits for it and ends with its exit code\n"
    "\n"
    "Exit codes: 0 done, 1 problems (one a line), 64 wrong usage; with --run the updater's.\n";

}  // namespace tolvarine::updater::stage
