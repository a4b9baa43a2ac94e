// An update staged on a simulated machine: an installation, a release beside its lists, a workspace
// with its markers, and the command line that starts the updater on them. What tests and the crash
// laboratory have in common.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "driver/command_line.h"
#include "engine/transaction.h"
#include "simulated_windows/computer.h"
#include "staging/layout.h"

namespace tolvarine::updater::simulated {

// Release-relative paths with `/`, and the content of each.
using FileSet = std::map<std::u16string, std::string>;

// What an update is made of.
struct UpdatePlan {
  FileSet baseline;                       // The installation before.
  FileSet release;                        // What is staged and listed.
  std::vector<std::u16string> deletions;  // Managed deletions.
  char16_t state_drive = u'C';            // Where the state directory lies.
  char16_t target_drive = u'C';
};

// A plan that changes, adds, deletes and leaves alone: nested new directories, an empty file, one
// of several sectors, a file of the installation that neither list names.
[[nodiscard]] UpdatePlan TypicalPlan();

inline constexpr std::u16string_view kInstallKey =
    u"00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff";
inline constexpr std::u16string_view kUpdateId =
    u"f0e1d2c3b4a5968778695a4b3c2d1e0ff0e1d2c3b4a5968778695a4b3c2d1e0f";

inline constexpr std::string_view kPendingContent = "{\"pending\": true}\n";
inline constexpr std::string_view kLaunchedContent = "{}";
inline constexpr std::string_view kArchiveContent = "archive";
inline constexpr std::string_view kPreviousManifest = "{\"previous\": true}\n";

class SimulatedUpdate {
 public:
  // Sets up a computer, settles it and makes it current.
  explicit SimulatedUpdate(UpdatePlan update_plan = TypicalPlan());

  Computer computer;
  UpdatePlan plan;
  staging::UpdateLayout layout;
  Path source;
  Path target;
  UpdaterArguments arguments;  // As the command line gives them.

  // Runs the main sequence from the command line of `arguments`, as a new process does. Returns the
  // exit code.
  std::int32_t Run();

  // Sets the command line that Run uses to that of `arguments` as they now are.
  void RefreshCommandLine();

  // What the engine is given by the driver, for tests that call it alone.
  [[nodiscard]] TransactionRequest Request() const;

  // The files below the target, and below the transaction directory, without directories; paths
  // with `/`. The update log is not among them.
  [[nodiscard]] FileSet Target() const;
  [[nodiscard]] FileSet Transaction() const;

  // What the target holds when the update has been installed: the release, and what neither list
  // names.
  [[nodiscard]] FileSet Installed() const;

  // The records of the update log; empty without one.
  [[nodiscard]] std::string Log() const;

  [[nodiscard]] Path TargetPath(std::u16string_view relative) const;
  [[nodiscard]] Path SourcePath(std::u16string_view relative) const;
};

}  // namespace tolvarine::updater::simulated
