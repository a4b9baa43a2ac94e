#include "update/copying.h"

#include <algorithm>
#include <set>
#include <vector>

#include "driver/request_validation.h"
#include "engine/release_verification.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "files/sha256.h"
#include "lists/release_path.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "reasons/sentences.h"
#include "reasons/verb_failure.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "text/utf8.h"
#include "update/retire.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::uint32_t kBlockSize = 65536;

using Advance = std::function<void(std::uint64_t bytes)>;

void MakeDirectories(const Path& directory) {
  const std::uint32_t code = CreateDirectories(directory);
  if (code != 0) throw FilesystemError("create_directories", code, directory);
}

// Writes the rest of an open file to a new file and flushes it. Returns the digest of what was
// written, as 64 lower-case digits.
std::string CopyHashed(platform::Handle from, const Path& from_path, const Path& to,
                       const Advance& advance) {
  MakeDirectories(ParentPath(to));
  const Path extended = ExtendedLengthPath(to);
  const FileHandle copy(platform::CreateFileW(extended.c_str(), platform::kGenericWrite,
                                              platform::kFileShareNone, platform::kCreateAlways,
                                              platform::kFileAttributeNormal));
  if (!copy) throw FilesystemError("create", platform::GetLastError(), to);
  Sha256 sha256;
  sha256.Begin();
  std::vector<char> block(kBlockSize);
  for (;;) {
    std::uint32_t read = 0;
    if (!platform::ReadFile(from, block.data(), kBlockSize, &read)) {
      throw FilesystemError("read", platform::GetLastError(), from_path);
    }
    if (read == 0) break;
    sha256.Add({block.data(), read});
    std::uint32_t written = 0;
    if (!platform::WriteFile(copy.get(), block.data(), read, &written)) {
      throw FilesystemError("write", platform::GetLastError(), to);
    }
    if (written != read) throw FilesystemError("write", platform::kErrorWriteFault, to);
    advance(read);
  }
  if (!platform::FlushFileBuffers(copy.get())) {
    throw FilesystemError("flush", platform::GetLastError(), to);
  }
  return HexOf(sha256.Finish());
}

// Reports the bytes of one step.
class Meter {
 public:
  Meter(ProgressStep step, std::uint64_t total, const ProgressCallback& progress)
      : state_{.step = step, .total = total}, progress_(progress) {}

  void Begin(const Path& file) {
    state_.file = file;
    Add(0);
  }
  void Add(std::uint64_t bytes) {
    state_.done += bytes;
    if (progress_ && !progress_(state_)) throw Cancelled{};
  }

 private:
  Progress state_;
  const ProgressCallback& progress_;
};

// --- The stage -----------------------------------------------------------------------------------

[[noreturn]] void RefusePackage(const Path& path, const std::string& what) {
  throw VerbFailure(ReasonCode::PackageMismatch,
                    "The package's file " + Quoted(path) + " " + what +
                        " Get the package again, and prepare again.",
                    path);
}

void StageFile(const Path& package, const SourceInventoryEntry& row, const Path& to, Meter& meter) {
  meter.Begin(row.path);
  const Path from = JoinPath(package, row.path);
  if (QueryLinkStatus(from).kind == FileKind::not_found) RefusePackage(row.path, "is missing.");
  std::optional<LockedReleaseFile> locked;
  try {
    locked.emplace(from);
  } catch (const std::exception& failure) {
    RefusePackage(row.path, "cannot be locked: " + FailureText(failure));
  }
  const LockedReleaseFile& file = *locked;
  const std::string sha256 =
      CopyHashed(file.handle(), from, to, [&](std::uint64_t bytes) { meter.Add(bytes); });
  if (static_cast<std::uint64_t>(file.size()) != row.size || sha256 != row.sha256) {
    RefusePackage(row.path, "is not the one that the release describes.");
  }
}

void RenameDirectory(const Path& from, const Path& to) {
  if (platform::MoveFileExW(from.c_str(), to.c_str(), platform::kMovefileWriteThrough)) return;
  throw FilesystemError("rename", platform::GetLastError(), from);
}

void CopyPackage(const UpdatePaths& paths, const Path& package, const SourceInventory& inventory,
                 const ProgressCallback& progress) {
  // Shorter than the stage's name, so that no path is too long only here.
  const Path unfinished = JoinPath(paths.stages, u"new");
  const Path former = JoinPath(paths.stages, u"old");
  RemoveDirectory(unfinished);
  RemoveDirectory(former);
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& row : inventory) total += row.size;
  Meter meter(ProgressStep::Staging, total, progress);
  for (const SourceInventoryEntry& row : inventory) {
    StageFile(package, row, JoinPath(unfinished, row.path), meter);
  }
  // A stage that cannot be replaced stays whole.
  if (QueryLinkStatus(paths.stage).kind != FileKind::not_found) {
    RenameDirectory(paths.stage, former);
  }
  RenameDirectory(unfinished, paths.stage);
  RemoveDirectory(former);
}

bool HoldsInventory(const Path& stage, const SourceInventory& inventory) {
  if (QueryLinkStatus(stage).kind != FileKind::directory) return false;
  try {
    VerifyReleaseTree(stage, NormalizeSourceInventory(inventory));
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

// Nothing is removed from a directory that turns out to be another package.
void RequireRows(const Path& stage, const SourceInventory& inventory,
                 const ProgressCallback& progress) {
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& row : inventory) total += row.size;
  Meter meter(ProgressStep::Staging, total, progress);
  for (const SourceInventoryEntry& row : inventory) {
    meter.Begin(row.path);
    const Path path = JoinPath(stage, row.path);
    if (QueryLinkStatus(path).kind != FileKind::regular) RefusePackage(row.path, "is missing.");
    const LockedReleaseFile file(path);
    if (static_cast<std::uint64_t>(file.size()) != row.size ||
        Sha256OfLockedFile(file) != row.sha256) {
      RefusePackage(row.path, "is not the one that the release describes.");
    }
    meter.Add(row.size);
  }
}

// Removes what the inventory does not hold.
void PruneStage(const Path& stage, const SourceInventory& inventory) {
  std::set<std::u16string> kept;
  for (const SourceInventoryEntry& row : inventory) kept.insert(PathCompareKey(row.path));
  std::vector<Path> superfluous;
  const std::uint32_t code = EnumerateTree(stage, [&](const TreeEntry& entry) -> std::uint32_t {
    const Path relative = LexicallyRelative(entry.path, stage);
    const bool directory = KindOf(entry) == FileKind::directory;
    if (!directory && !kept.contains(PathCompareKey(relative))) superfluous.push_back(entry.path);
    return 0;
  });
  if (code != 0) throw FilesystemError("enumerate", code, stage);
  for (const Path& path : superfluous) {
    const std::uint32_t removal = RemoveEntry(path).error;
    if (removal != 0) throw FilesystemError("remove", removal, path);
  }
}

// --- Installed files -----------------------------------------------------------------------------

// The files of the installed description that the update replaces or deletes.
SourceInventory FilesToKeep(const ReleaseDescription& installed, const Difference& difference) {
  std::set<std::u16string> touched;
  for (const SourceInventoryEntry& row : difference.changed) {
    touched.insert(PathCompareKey(row.path));
  }
  for (const Path& path : difference.deletions) touched.insert(PathCompareKey(path));
  SourceInventory kept;
  std::ranges::copy_if(installed.files, std::back_inserter(kept),
                       [&](const auto& row) { return touched.contains(PathCompareKey(row.path)); });
  return kept;
}

Path FormerFile(const Installation& installation, const SourceInventoryEntry& row) {
  return JoinPath(JoinPath(installation.state, u"former"), Utf16FromUtf8(row.sha256));
}

// Copies a file whose content is the one described; leaves out any other.
void KeepFile(const Path& from, const SourceInventoryEntry& row, const Path& to, Meter& meter) {
  if (QueryStatus(from).kind != FileKind::regular) return;
  // Unlike a release file, an installed one may have several names, and the application may have it
  // open; what is copied is verified.
  const Path extended = ExtendedLengthPath(from);
  const FileHandle file(platform::CreateFileW(extended.c_str(), platform::kGenericRead,
                                              platform::kFileShareAll, platform::kOpenExisting,
                                              platform::kFileAttributeNormal));
  if (!file) throw FilesystemError("open", platform::GetLastError(), from);
  const Path temporary = to + u".new";
  const std::string sha256 =
      CopyHashed(file.get(), from, temporary, [&](std::uint64_t bytes) { meter.Add(bytes); });
  if (sha256 == row.sha256) {
    ReplaceFileDurably(temporary, to);
  } else {
    RemoveEntry(temporary);
  }
}

bool HasContent(const Path& path, const std::string& content) {
  try {
    return ReadFileBytes(path, content.size()) == content;
  } catch (const std::runtime_error&) {
    return false;
  }
}

}  // namespace

std::uint64_t BytesToStage(const UpdatePaths& paths, const Path& package,
                           const SourceInventory& inventory) {
  if (SamePathKey(package, paths.stage)) return 0;
  std::uint64_t total = 0;
  bool staged = true;
  for (const SourceInventoryEntry& row : inventory) {
    total += row.size;
    staged = staged && QueryFileSize(JoinPath(paths.stage, row.path)).size == row.size;
  }
  return staged ? 0 : total;
}

std::uint64_t BytesToKeep(const Installation& installation, const ReleaseDescription& installed,
                          const Difference& difference) {
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& row : FilesToKeep(installed, difference)) {
    const Path kept = FormerFile(installation, row);
    if (QueryLinkStatus(kept).kind != FileKind::regular) total += row.size;
  }
  return total;
}

Path StageRelease(const UpdatePaths& paths, const Path& package, const SourceInventory& inventory,
                  const ProgressCallback& progress) {
  if (SamePathKey(package, paths.stage)) {
    RequireRows(package, inventory, progress);
    PruneStage(package, inventory);
    if (!HoldsInventory(package, inventory)) {
      throw VerbFailure(ReasonCode::PackageMismatch,
                        "The stage " + Quoted(package) +
                            " does not hold the files that the release describes. Unpack the "
                            "package again, and prepare again.",
                        package);
    }
    return package;
  }
  if (!HoldsInventory(paths.stage, inventory)) CopyPackage(paths, package, inventory, progress);
  return paths.stage;
}

void KeepFormerFiles(const Installation& installation, const VerifiedRelease& installed,
                     const Difference& difference, const ProgressCallback& progress) {
  const Path former = JoinPath(installation.state, u"former");
  const Path description = JoinPath(former, u"release.json");
  if (!HasContent(description, installed.envelope)) {
    RemoveDirectory(former);
    WriteFileDurably(description, installed.envelope);
  }
  const SourceInventory files = FilesToKeep(installed.description, difference);
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& row : files) total += row.size;
  Meter meter(ProgressStep::Keeping, total, progress);
  for (const SourceInventoryEntry& row : files) {
    meter.Begin(row.path);
    const Path to = FormerFile(installation, row);
    if (QueryLinkStatus(to).kind == FileKind::regular) continue;
    KeepFile(JoinPath(installation.target, row.path), row, to, meter);
  }
}

std::string RequireUpdater(const Installation& installation, const Path& program,
                           const ReleaseDescription* installed) {
  std::string sha256;
  try {
    sha256 = Sha256OfLockedFile(LockedReleaseFile(program));
  } catch (const std::exception& failure) {
    throw VerbFailure(ReasonCode::ProgramChanged,
                      "The updater " + Quoted(program) + " cannot be locked and read: " +
                          FailureText(failure) + " Name the updater that is to be used.",
                      program);
  }
  if (installed != nullptr && IsPathWithin(program, installation.target)) {
    const std::u16string key = PathCompareKey(LexicallyRelative(program, installation.target));
    const auto row = std::ranges::find_if(
        installed->files, [&](const auto& one) { return PathCompareKey(one.path) == key; });
    if (row == installed->files.end() || row->sha256 != sha256) {
      throw VerbFailure(ReasonCode::ProgramChanged,
                        "The updater " + Quoted(program) +
                            " is not the one of the installed release. Install the full package, "
                            "then adopt.",
                        program);
    }
  }
  return sha256;
}

ProgramCopy CopyUpdater(const Installation& installation, const Path& program,
                        const ReleaseDescription* installed) {
  std::string sha256 = RequireUpdater(installation, program, installed);
  const LockedReleaseFile file(program);
  ProgramCopy copy{UpdaterCopyPath(installation, sha256), std::move(sha256)};
  const Path temporary = copy.path + u".new";
  const std::string written = CopyHashed(file.handle(), program, temporary, [](std::uint64_t) {});
  if (written != copy.sha256) {
    throw VerbFailure(ReasonCode::ProgramChanged,
                      "The updater " + Quoted(program) + " has changed while it was copied.",
                      program);
  }
  ReplaceFileDurably(temporary, copy.path);
  return copy;
}

}  // namespace tolvarine::updater::application
