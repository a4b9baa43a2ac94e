#include "update/difference.h"

#include <string_view>
#include <unordered_map>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/sha256.h"
#include "lists/release_path.h"
#include "platform/files.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

// A row of a description with the key of its path, which takes time to compute.
struct KeyedFile {
  std::u16string key;
  const SourceInventoryEntry* row = nullptr;
};

// In the order of the description.
std::vector<KeyedFile> FilesOf(const ReleaseDescription& description) {
  std::vector<KeyedFile> files;
  files.reserve(description.files.size());
  for (const SourceInventoryEntry& file : description.files) {
    files.push_back({PathCompareKey(file.path), &file});
  }
  return files;
}

using Rows = std::unordered_map<std::u16string_view, const SourceInventoryEntry*>;  // By key.

Rows RowsOf(const std::vector<KeyedFile>& files) {
  Rows rows;
  for (const KeyedFile& file : files) rows.emplace(file.key, file.row);
  return rows;
}

const SourceInventoryEntry* FindRow(const Rows& rows, std::u16string_view key) {
  const auto found = rows.find(key);
  return found == rows.end() ? nullptr : found->second;
}

// A file of the installation that is compared. It has no size where it is no regular file.
struct InstalledFile {
  const Path* path = nullptr;  // Relative.
  bool exists = false;
  std::optional<std::uint64_t> size{};
  const SourceInventoryEntry* described = nullptr;  // By the release.
  const SourceInventoryEntry* installed = nullptr;  // By the installed description.
  std::string sha256{};                             // Once it is hashed.

  [[nodiscard]] bool SizeIsOf(const SourceInventoryEntry* row) const {
    return row != nullptr && size == row->size;
  }
  // The content can only be the one that a row of the same size describes.
  [[nodiscard]] bool MustBeHashed() const { return SizeIsOf(described) || SizeIsOf(installed); }
  [[nodiscard]] bool Is(const SourceInventoryEntry* row) const {
    return SizeIsOf(row) && sha256 == row->sha256;
  }
};

// `relative` must outlive the result.
InstalledFile Query(const Path& target, const Path& relative) {
  const Path path = JoinPath(target, relative);
  InstalledFile file{.path = &relative};
  // One call for almost every file; links and failures take the others.
  platform::FileAttributeData data;
  if (platform::GetFileAttributesExW(path.c_str(), &data) &&
      (data.attributes & platform::kFileAttributeReparsePoint) == 0) {
    file.exists = true;
    if ((data.attributes & platform::kFileAttributeDirectory) == 0) file.size = data.size;
    return file;
  }
  const FileStatus status = QueryLinkStatus(path);
  if (status.kind == FileKind::none) throw FilesystemError("status", status.error, path);
  file.exists = status.kind != FileKind::not_found;
  if (status.kind != FileKind::regular) return file;
  const FileSize size = QueryFileSize(path);
  if (size.error != 0) throw FilesystemError("status", size.error, path);
  file.size = size.size;
  return file;
}

// Hashes files one after another and reports how far it has come.
class Hasher {
 public:
  Hasher(const Path& target, const ProgressCallback& progress)
      : target_(target), progress_(progress) {}

  void Expect(const InstalledFile& file) {
    if (file.MustBeHashed()) state_.total += *file.size;
  }

  void Hash(InstalledFile& file) {
    state_.file = *file.path;
    Report(0);
    if (!file.MustBeHashed()) return;
    const Path path = JoinPath(target_, *file.path);
    try {
      Sha256 sha256;
      sha256.Begin();
      VisitFileBlocks(path, [&](std::string_view block) {
        sha256.Add(block);
        Report(block.size());
      });
      file.sha256 = HexOf(sha256.Finish());
    } catch (const SystemError& failure) {
      throw FilesystemError("read", failure.code(), path);
    }
  }

 private:
  void Report(std::uint64_t bytes) {
    state_.done += bytes;
    if (progress_ && !progress_(state_)) throw Cancelled{};
  }

  const Path& target_;
  const ProgressCallback& progress_;
  Progress state_{.step = ProgressStep::Comparing};
};

// What the new release lacks: of the installed description, or else of the release's own list.
std::vector<const Path*> FilesToRemove(const ReleaseDescription& release, const Rows& described,
                                       const ReleaseDescription* installed,
                                       const std::vector<KeyedFile>& installed_files) {
  std::vector<const Path*> paths;
  if (installed == nullptr) {
    for (const Path& path : release.removed) paths.push_back(&path);
  }
  for (const KeyedFile& file : installed_files) {
    if (FindRow(described, file.key) == nullptr) paths.push_back(&file.row->path);
  }
  return paths;
}

}  // namespace

Difference FindDifference(const Path& target, const ReleaseDescription& release,
                          const ReleaseDescription* installed, const ProgressCallback& progress) {
  const std::vector<KeyedFile> release_files = FilesOf(release);
  const std::vector<KeyedFile> installed_files =
      installed == nullptr ? std::vector<KeyedFile>() : FilesOf(*installed);
  const Rows installed_rows = RowsOf(installed_files);
  std::vector<InstalledFile> files;
  for (const KeyedFile& row : release_files) {
    files.push_back(Query(target, row.row->path));
    files.back().described = row.row;
    files.back().installed = FindRow(installed_rows, row.key);
  }
  for (const Path* const path :
       FilesToRemove(release, RowsOf(release_files), installed, installed_files)) {
    InstalledFile file = Query(target, *path);
    file.installed = FindRow(installed_rows, PathCompareKey(*path));
    if (file.exists) files.push_back(std::move(file));
  }
  Hasher hasher(target, progress);
  for (const InstalledFile& file : files) hasher.Expect(file);

  Difference difference{.nothing_to_do = true};
  for (InstalledFile& file : files) {
    try {
      hasher.Hash(file);
    } catch (const FilesystemError& failure) {
      difference.unreadable.push_back({*file.path, failure.code()});
      difference.nothing_to_do = false;
      continue;
    }
    const bool as_described = file.Is(file.described);
    // The executable is the last file of every description.
    const bool application = file.described == &release.files.back();
    if (as_described) ++difference.unchanged;
    if (!as_described) difference.nothing_to_do = false;
    if (file.described == nullptr) {
      difference.deletions.push_back(*file.path);
    } else if (!as_described || application) {
      difference.changed.push_back(*file.described);
    }
    const bool known = installed == nullptr || file.Is(file.installed);
    if (file.size && !as_described && !known) difference.changed_by_others.push_back(*file.path);
  }
  return difference;
}

bool HoldsRelease(const Path& target, const ReleaseDescription& release,
                  const ProgressCallback& progress, Path& first_difference) {
  std::vector<InstalledFile> files;
  Hasher hasher(target, progress);
  for (const SourceInventoryEntry& row : release.files) {
    files.push_back(Query(target, row.path));
    files.back().described = &row;
    hasher.Expect(files.back());
  }
  for (InstalledFile& file : files) {
    hasher.Hash(file);
    if (file.Is(file.described)) continue;
    first_difference = *file.path;
    return false;
  }
  return true;
}

}  // namespace tolvarine::updater::application
