// The state directory of an installation, and the locks that keep two programs from working on it.
//
//     S                           <state root>\<key>, the installation's state directory
//     S\lock                      opened without sharing by whoever works on the installation
//     S\ledger.json, S\ledger.former.json
//     S\installed-manifest.json   the signed release that is installed
//     S\s\K\release               the stage of an update, K being half of its id
//     S\updates\<update id>       W, the workspace of an update
//     W\request.json, W\request.copy.json
//     W\release.json              the signed release
//     W\pending.json              the signed release, until it is installed
//     W\completed.json            the same, once it is
//     W\launched.json             a start was asked for, and no run has ended since
//     W\transaction               the updater's journal and baseline copies
//     S\former\release.json       the signed release that was installed before
//     S\former\<sha256>           verified copies of its files that an update has replaced or deleted
//     S\p\<16 digits>\           a copy of the updater or the resumer, from which it is run, under
//                                 the beginning of its SHA-256
//     S\abandoned\<16 digits>     stages and workspaces that were given up
//
// The key is the SHA-256 of the target's canonical path in the lower case of comparison keys, as
// UTF-8, so that one directory has one key.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "driver/installation_lock.h"
#include "files/unique_handle.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct Installation {
  Path target;  // Canonical.
  Path state{};   // S, canonical.
  std::u16string key{};
};

// Where everything of one update lies.
struct UpdatePaths {
  Path workspace;
  Path stage;   // S\s\K\release
  Path stages;  // S\s\K
  Path request;
  Path request_copy;
  Path release;
  Path pending;
  Path completed;
  Path launched;
  Path transaction;
};

// Resolves both paths, which may be relative to the current directory and need not exist. Makes
// nothing. Throws FilesystemError where a path cannot be resolved, and std::runtime_error for a
// target or state root that is not a full directory path, or where one contains the other.
[[nodiscard]] Installation LocateInstallation(const Path& target, const Path& state_root);

[[nodiscard]] UpdatePaths PathsOf(const Installation& installation, std::u16string_view update_id);
[[nodiscard]] Path InstalledManifestOf(const Installation& installation);

inline constexpr PathView kUpdaterName = u"TolvarineUpdater.exe";
inline constexpr PathView kResumerName = u"TolvarineResume.exe";

// Where the program of this name and SHA-256 (64 digits) is copied to, and run from.
[[nodiscard]] Path ProgramCopyPath(const Installation& installation, std::string_view sha256,
                                   PathView name);

// The ids of all workspaces, in ascending order: directories of S\updates whose name is an
// identifier. Throws SystemError where the directory exists and cannot be read.
[[nodiscard]] std::vector<std::u16string> WorkspacesOf(const Installation& installation);

// Both locks: S\lock, which holds across logon sessions, and the updater's mutex, which shows that
// no updater runs in this one.
class InstallationLocks {
 public:
  // Makes S and takes both locks, each without waiting. Nothing where either is taken (a mutex that
  // cannot be opened counts as taken). Throws SystemError where S or the file cannot be made for
  // another reason than sharing.
  [[nodiscard]] static std::optional<InstallationLocks> TryTake(const Installation& installation);

  // Gives the mutex back, before an updater is started, and keeps S\lock.
  void ReleaseMutex() { mutex_->Release(); }

  // Takes the mutex again, once the updater has ended. False where another updater holds it for that
  // many milliseconds.
  [[nodiscard]] bool TakeMutexAgain(const Installation& installation, std::int64_t timeout);

 private:
  FileHandle file_;
  std::unique_ptr<InstallationLock> mutex_;
};

}  // namespace tolvarine::updater::application
