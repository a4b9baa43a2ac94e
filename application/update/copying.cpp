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
#include "release/digest.h"
#include "release/file_bytes.h"
#include "text/utf8.h"
#include "update/retire.h"
#include "update/sentences.h"
#include "update/verb_failure.h"

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
  const LockedReleaseFile file(from);
  const std::string sha256 =
      CopyHashed(file.handle(), from, to, [&](std::uint64_t bytes) { meter.Add(bytes); });
  if (static_cast<std::uint64_t>(file.size()) != row.size || sha256 != row.sha256) {
    RefusePackage(row.path, "is not the one that the release describes.");
  }
}

void CopyPackage(const UpdatePaths& paths, const Path& package, const SourceInventory& inventory,
                 const ProgressCallback& progress) {
  // Shorter than the stage's name, so that no path is too long only here.
  const Path unfinished = JoinPath(paths.stages, u"new");
  RemoveDirectory(unfinished);
  RemoveDirectory(paths.stage);
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& row : inventory) total += row.size;
  Meter meter(ProgressStep::Staging, total, progress);
  for (const SourceInventoryEntry& row : inventory) {
    StageFile(package, row, JoinPath(unfinished, row.path), meter);
  }
  if (!platform::MoveFileExW(unfinished.c_str(), paths.stage.c_str(),
                             platform::kMovefileWriteThrough)) {
    throw FilesystemError("rename", platform::GetLastError(), paths.stage);
  }
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

// Copies a file whose content is the one described; leaves out any other.
void KeepFile(const Path& from, const SourceInventoryEntry& row, const Path& to, Meter& meter) {
  if (QueryStatus(from).kind != FileKind::regular) return;
  // Unlike a release file, an installed one may have several names.
  const Path extended = ExtendedLengthPath(from);
  const FileHandle file(platform::CreateFileW(extended.c_str(), platform::kGenericRead,
                                              platform::kFileShareRead | platform::kFileShareDelete,
                                              platform::kOpenExisting,
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

Path StageRelease(const UpdatePaths& paths, const Path& package, const SourceInventory& inventory,
                  const ProgressCallback& progress) {
  if (IsPathWithin(package, paths.stages)) {
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
    const Path to = JoinPath(former, Utf16FromUtf8(row.sha256));
    if (QueryLinkStatus(to).kind == FileKind::regular) continue;
    KeepFile(JoinPath(installation.target, row.path), row, to, meter);
  }
}

ProgramCopy CopyProgram(const Installation& installation, const Path& program, PathView name,
                        const ReleaseDescription* installed) {
  const LockedReleaseFile file(program);
  std::string sha256 = Sha256OfLockedFile(file);
  if (installed != nullptr && IsPathWithin(program, installation.target)) {
    const std::u16string key = PathCompareKey(LexicallyRelative(program, installation.target));
    const auto row = std::ranges::find_if(
        installed->files, [&](const auto& one) { return PathCompareKey(one.path) == key; });
    if (row == installed->files.end() || row->sha256 != sha256) {
      throw VerbFailure(ReasonCode::ProgramChanged,
                        "The program " + Quoted(program) +
                            " is not the one of the installed release. Install the full package, "
                            "then adopt.",
                        program);
    }
  }
  ProgramCopy copy{ProgramCopyPath(installation, sha256, name), sha256};
  if (SamePathKey(program, copy.path)) return copy;
  const Path temporary = copy.path + u".new";
  const std::string written = CopyHashed(file.handle(), program, temporary, [](std::uint64_t) {});
  if (written != copy.sha256) {
    throw VerbFailure(ReasonCode::ProgramChanged,
                      "The program " + Quoted(program) + " has changed while it was copied.",
                      program);
  }
  ReplaceFileDurably(temporary, copy.path);
  return copy;
}

}  // namespace tolvarine::updater::application
