// An update staged on a simulated computer, for tests and the crash laboratory: an installation, a
// release with its lists, a workspace with its markers, and the command line of the updater.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "driver/command_line.h"
#include "engine/transaction.h"
#include "inspection/update_layout.h"
#include "simulated_windows/computer.h"

namespace tolvarine::updater::simulated {

// Release-relative paths with `/`, and the content of each.
using FileSet = std::map<std::u16string, std::string>;

// The contents of an update.
struct UpdatePlan {
  FileSet baseline;                       // The installation before.
  FileSet release;                        // What is staged and listed.
  std::vector<std::u16string> deletions;  // Managed deletions.
  char16_t state_drive = u'C';            // Where the state directory lies.
  char16_t target_drive = u'C';
};

// Changes, adds and deletes files; among them are nested new directories, an empty file, one of
// several sectors, and a file of the installation that neither list names.
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
  inspection::UpdateLayout layout;
  Path source;
  Path target;
  UpdaterArguments arguments;  // Those of the command line; see RefreshCommandLine.

  // Runs the main sequence with the computer's command line, as a new process does. Returns the
  // exit code.
  std::int32_t Run();

  // Sets the command line that Run uses to that of the current `arguments`.
  void RefreshCommandLine();

  // What the driver passes to the engine, for tests that call the engine alone.
  [[nodiscard]] TransactionRequest Request() const;

  // The files below the target, and below the transaction directory, without directories; paths
  // with `/`. The update log is not among them.
  [[nodiscard]] FileSet Target() const;
  [[nodiscard]] FileSet Transaction() const;

  // What the target contains when the update is installed: the release, and what neither list
  // names.
  [[nodiscard]] FileSet Installed() const;

  // The update log; empty if there is none.
  [[nodiscard]] std::string Log() const;

  [[nodiscard]] Path TargetPath(std::u16string_view relative) const;
  [[nodiscard]] Path SourcePath(std::u16string_view relative) const;
};

}  // namespace tolvarine::updater::simulated
