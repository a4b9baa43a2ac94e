// One real update: an installation, a staged release and a workspace in a scratch directory of
// their own, and the command line that names them. No two updates share anything.

#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "driver/command_line.h"
#include "end_to_end/real_process.h"
#include "files/unique_handle.h"
#include "inspection/file_tree.h"
#include "inspection/saved_phase.h"
#include "inspection/update_layout.h"

namespace tolvarine::updater::end_to_end {

using inspection::FileTree;

using Changes = std::set<std::string>;

// The application's executable. Its version is the last line of the file.
[[nodiscard]] std::string Application(std::string_view version);

// Throws std::runtime_error.
void WriteBytes(const std::filesystem::path& path, std::string_view bytes);

// Makes the directory and all directories that the files need. Throws as WriteBytes does, and
// std::filesystem::filesystem_error.
void WriteTree(const std::filesystem::path& directory, const FileTree& files);

// A new directory that no other test uses, and its removal, for which programs in it may take a
// moment to end.
[[nodiscard]] std::filesystem::path NewScratchDirectory();
void RemoveScratchDirectory(const std::filesystem::path& directory);

// Opens a file for reading. Others may read and write it, but neither replace nor remove it.
[[nodiscard]] FileHandle OpenWithoutDeleteSharing(const std::filesystem::path& path);

struct UpdateContents {
  FileTree installed;
  FileTree release;
  ManagedDeletionList deletions;
};

// From version 1 to version 2: replaced, deleted, new, nested, empty, large and non-ASCII files,
// and one that the user has made.
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
  inspection::UpdateLayout layout;
  std::filesystem::path release;
  UpdaterArguments arguments;

  // The updater is to wait for this process.
  void WaitFor(const RealProcess& process);

  // The updater is to restart a program outside the installation, which this makes. Returns its
  // path.
  std::filesystem::path RestartAnotherProgram();

  [[nodiscard]] std::u16string CommandLine() const;
  [[nodiscard]] std::unique_ptr<RealProcess> Start() const;
  [[nodiscard]] std::string Run() const { return Start()->Finish(); }

  [[nodiscard]] TransactionPhase SavedPhase() const;

  // Expects every file of the installation but its log to be of one of these versions, or the same
  // in both; likewise the directories.
  void ExpectTarget(const std::set<inspection::Version>& versions) const;

  // Expects the new version, restarted.
  void ExpectInstalled() const;

  // What has changed since the update was made or since the last call: "- name" for what is gone,
  // "+ name" for what has come, both for a file that was written. The names begin with target,
  // release, workspace or state.
  [[nodiscard]] Changes ChangesSince();

  // The records of the log without their times; a record whose time does not lie between the making
  // of the update and now follows "bad time: " whole.
  [[nodiscard]] std::string Log() const;

  // The report of a program that was restarted, which this removes. Waits for it.
  [[nodiscard]] std::string Restarted(const std::filesystem::path& program) const;

 private:
  using Stamps = std::set<std::pair<std::string, std::uint64_t>>;  // With the last write's time.

  [[nodiscard]] std::string ShortName(const std::filesystem::path& path) const;
  [[nodiscard]] Stamps StampsNow() const;

  std::string made_at_;  // In the form of the log.
  Stamps stamps_;
};

// The report of a program that was restarted in a working directory.
[[nodiscard]] std::string Restart(std::string_view version, const std::filesystem::path& directory,
                                  const std::filesystem::path& program);

// A record of the log, as Log returns it, for a message as its box shows it.
[[nodiscard]] std::string LogRecord(std::string_view level, std::string message);

}  // namespace tolvarine::updater::end_to_end
