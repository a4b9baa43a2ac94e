// One update as the application would ask for it: an installation, a staged release and a workspace
// in a scratch directory of their own, the command line that names them, and what has become of
// them. Everything is real; nothing is shared between two updates.

#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "driver/command_line.h"
#include "end_to_end/real_process.h"
#include "engine/transaction.h"
#include "staging/layout.h"

namespace tolvarine::updater::end_to_end {

// Names in UTF-8 with `/`, and contents. In what is read back, directories are there too, their
// names ending in `/`, and a long content is told by its length and fingerprint.
using Files = std::map<std::string, std::string>;

using Changes = std::set<std::string>;

// A path as such a name.
[[nodiscard]] std::string NameOf(const std::filesystem::path& path);

// The application's executable. Its version is the last line of the file.
[[nodiscard]] std::string Application(std::string_view version);

[[nodiscard]] std::string ReadBytes(const std::filesystem::path& path);
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

// Where the scratch directories of this run lie.
[[nodiscard]] const std::filesystem::path& ScratchRoot();

struct UpdateContents {
  Files installed;
  Files release;
  ManagedDeletionList deletions;
};

// From version 1 to version 2: replaced, deleted, new, nested, empty, large and non-ASCII files,
// and one of the user's own. One deletion and seven files.
[[nodiscard]] UpdateContents UsualContents();

class RealUpdate {
 public:
  explicit RealUpdate(UpdateContents update = UsualContents());
  RealUpdate(const RealUpdate&) = delete;
  RealUpdate& operator=(const RealUpdate&) = delete;
  ~RealUpdate();

  UpdateContents contents;
  std::filesystem::path root;
  std::filesystem::path target;
  std::filesystem::path application;  // The installed one.
  staging::UpdateLayout layout;
  std::filesystem::path release;
  UpdaterArguments arguments;

  // Lets the updater wait for the process.
  void WaitFor(const RealProcess& process);

  [[nodiscard]] std::u16string CommandLine() const;
  [[nodiscard]] std::unique_ptr<RealProcess> Start() const;
  [[nodiscard]] std::string Run() const { return Start()->Finish(); }

  // A run of the engine in this process, which ends as the hook says.
  void RunEngine(const TransactionHook& hook) const;
  [[nodiscard]] TransactionPhase SavedPhase() const;  // None or Corrupt where there is no record.

  // The installation but for its log: as it is, as it was, as it is to be.
  [[nodiscard]] Files Target() const;
  [[nodiscard]] Files Baseline() const;
  [[nodiscard]] Files Installed() const;

  // Expects the release in the target, and the new version restarted.
  void ExpectInstalled() const;

  // What has changed since the update was made or since the last call: "- name" for what is gone,
  // "+ name" for what has come, both for a file that was written. The names begin with target,
  // release, workspace or state.
  [[nodiscard]] Changes ChangesSince();

  // A name as it stands there, for one below ScratchRoot().
  [[nodiscard]] std::string ShortName(std::string name) const;

  // The records of the log without their times, each of which has been checked; the whole record
  // behind "bad time" where it is not as it must be.
  [[nodiscard]] std::string Log() const;

  // What a restarted application in this directory has told of itself, once. Waits for it.
  [[nodiscard]] std::string Started(const std::filesystem::path& directory) const;

 private:
  using Stamps = std::set<std::pair<std::string, std::uint64_t>>;  // With the last write's time.

  [[nodiscard]] Stamps StampsNow() const;

  std::string made_at_;  // As the log spells time.
  Stamps stamps_;
};

// A record of the log, as Log tells it, for a message as its box shows it.
[[nodiscard]] std::string LogRecord(std::string_view level, std::string message);

}  // namespace tolvarine::updater::end_to_end
