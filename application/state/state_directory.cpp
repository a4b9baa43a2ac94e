#include "state/state_directory.h"

#include <algorithm>
#include <stdexcept>

#include "driver/request_validation.h"
#include "files/canonical_path.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "lists/release_path.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "release/digest.h"
#include "text/hex.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

void ThrowUnlessResolved(std::uint32_t code, const Path& path) {
  if (code != 0) throw FilesystemError("canonicalize", code, path);
}

// A relative path is taken from the current directory.
Path FullPath(const Path& path) {
  Path current;
  ThrowUnlessResolved(Canonicalize(u".", current), u".");
  std::uint32_t code = 0;
  Path full = WeaklyCanonicalize(JoinPath(current, path), code);
  ThrowUnlessResolved(code, path);
  return full;
}

std::u16string KeyOf(const Path& target) {
  const std::string folded = Utf8FromUtf16(PathCompareKey(target));
  return Utf16FromUtf8(Sha256OfBytes(folded));
}

Path UpdatesOf(const Installation& installation) {
  return JoinPath(installation.state, u"updates");
}

}  // namespace

Installation LocateInstallation(const Path& target, const Path& state_root) {
  Installation installation{.target = FullPath(target)};
  const Path root = FullPath(state_root);
  if (!IsSafeDirectory(installation.target) || !IsSafeDirectory(root)) {
    throw std::runtime_error(
        "The installation and the state directory must be directories below a drive or share");
  }
  if (IsPathWithin(installation.target, root) || IsPathWithin(root, installation.target)) {
    throw std::runtime_error(
        "The installation and the state directory must not contain each other");
  }
  installation.key = KeyOf(installation.target);
  installation.state = JoinPath(root, installation.key);
  return installation;
}

UpdatePaths PathsOf(const Installation& installation, std::u16string_view update_id) {
  UpdatePaths paths;
  paths.workspace = JoinPath(UpdatesOf(installation), update_id);
  paths.stages =
      JoinPath(JoinPath(installation.state, u"s"), update_id.substr(0, kStageNameLength));
  paths.stage = JoinPath(paths.stages, u"release");
  const auto in_workspace = [&](PathView name) { return JoinPath(paths.workspace, name); };
  paths.request = in_workspace(u"request.json");
  paths.request_copy = in_workspace(u"request.copy.json");
  paths.release = in_workspace(u"release.json");
  paths.pending = in_workspace(u"pending.json");
  paths.completed = in_workspace(u"completed.json");
  paths.launched = in_workspace(u"launched.json");
  paths.transaction = in_workspace(u"transaction");
  return paths;
}

Path InstalledManifestOf(const Installation& installation) {
  return JoinPath(installation.state, u"installed-manifest.json");
}

Path ProgramCopyPath(const Installation& installation, std::string_view sha256, PathView name) {
  constexpr std::size_t kDigits = 16;
  const Path directory =
      JoinPath(JoinPath(installation.state, u"p"), Utf16FromUtf8(sha256.substr(0, kDigits)));
  return JoinPath(directory, name);
}

std::vector<std::u16string> WorkspacesOf(const Installation& installation) {
  std::vector<std::u16string> ids;
  const std::uint32_t code =
      EnumerateDirectory(UpdatesOf(installation), [&](const TreeEntry& entry) -> std::uint32_t {
        const std::u16string name(LastComponent(entry.path));
        const bool directory = KindOf(entry) == FileKind::directory;
        if (directory && IsLowerHex64(std::u16string_view(name))) ids.push_back(name);
        return 0;
      });
  if (code != 0 && !IsNotFoundError(code)) throw SystemError(code);
  std::ranges::sort(ids);
  return ids;
}

std::optional<InstallationLocks> InstallationLocks::TryTake(const Installation& installation) {
  const std::uint32_t code = CreateDirectories(installation.state);
  if (code != 0) throw FilesystemError("create_directories", code, installation.state);
  const Path path = JoinPath(installation.state, u"lock");
  InstallationLocks locks;
  locks.file_ = FileHandle(platform::CreateFileW(
      path.c_str(), platform::kGenericRead | platform::kGenericWrite, platform::kFileShareNone,
      platform::kOpenAlways, platform::kFileAttributeNormal));
  if (!locks.file_) {
    const std::uint32_t refusal = platform::GetLastError();
    if (refusal == platform::kErrorSharingViolation) return std::nullopt;
    throw SystemError(refusal, "Could not open the lock of the state directory");
  }
  locks.mutex_ = std::make_unique<InstallationLock>(installation.key);
  if (locks.mutex_->Acquire(0) != LockAcquireResult::Acquired) return std::nullopt;
  return locks;
}

bool InstallationLocks::TakeMutexAgain(const Installation& installation, std::int64_t timeout) {
  mutex_ = std::make_unique<InstallationLock>(installation.key);
  return mutex_->Acquire(timeout) == LockAcquireResult::Acquired;
}

}  // namespace tolvarine::updater::application
