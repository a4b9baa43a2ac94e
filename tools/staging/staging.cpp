#include "staging/staging.h"

#include <limits>
#include <set>

#include "driver/request_validation.h"
#include "engine/release_verification.h"
#include "files/canonical_path.h"
#include "files/durable_copy.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "files/unique_handle.h"
#include "platform/files.h"
#include "text/utf8.h"

namespace tolvarine::updater::staging {
namespace {

// The name of the copy until it is complete. It is shorter than the final name, so that no path is
// too long only during the copy.
constexpr PathView kUnfinishedName = u"new";

void ThrowIfFailed(std::string_view operation, std::uint32_t code, const Path& path) {
  if (code != 0) throw FilesystemError(operation, code, path);
}

void MakeDirectories(const Path& path) {
  ThrowIfFailed("create_directories", CreateDirectories(path), path);
}

void WriteAndFlush(const Path& path, std::string_view text) {
  const FileHandle file(platform::CreateFileW(path.c_str(), platform::kGenericWrite,
                                              platform::kFileShareNone, platform::kCreateAlways,
                                              platform::kFileAttributeNormal));
  if (!file) throw FilesystemError("create", platform::GetLastError(), path);
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(text.size());
  if (!platform::WriteFile(file.get(), text.data(), size, &written) || written != size ||
      !platform::FlushFileBuffers(file.get())) {
    throw FilesystemError("write", platform::GetLastError(), path);
  }
}

void WriteDurably(const Path& path, std::string_view text) {
  const Path temporary = path + u".tmp";
  WriteAndFlush(temporary, text);
  ReplaceFileDurably(temporary, path);
}

// Copies everything below `from`, also empty directories.
void CopyTree(const Path& from, const Path& to) {
  MakeDirectories(to);
  const std::uint32_t code = EnumerateTree(from, [&](const TreeEntry& entry) -> std::uint32_t {
    const Path copy = JoinPath(to, LexicallyRelative(entry.path, from));
    if (KindOf(entry) == FileKind::directory) return CreateOneDirectory(copy);
    CopyLockedFileToTemporary(LockedReleaseFile(entry.path), copy);
    return 0;
  });
  ThrowIfFailed("copy", code, from);
}

// Copies the release beside its final path and renames the directory, so that a stage is never
// partial.
void CopyRelease(const Path& release, const UpdateLayout& layout, const Path& source) {
  const Path unfinished = JoinPath(layout.stages, kUnfinishedName);
  if (QueryLinkStatus(unfinished).kind == FileKind::directory) {
    ThrowIfFailed("remove", RemoveTree(unfinished).error, unfinished);
  }
  CopyTree(release, unfinished);
  if (!platform::MoveFileExW(unfinished.c_str(), source.c_str(), platform::kMovefileWriteThrough)) {
    throw FilesystemError("rename", platform::GetLastError(), source);
  }
}

Problems CheckStage(const Path& source, const SourceInventory& inventory) {
  try {
    VerifyReleaseTree(source, NormalizeSourceInventory(inventory));
    return {};
  } catch (const std::exception& failure) {
    return {"The stage " + Quoted(source) +
            " holds something else than the release: " + FailureText(failure)};
  }
}

void Append(Problems& problems, const Problems& more) {
  problems.insert(problems.end(), more.begin(), more.end());
}

Problems CheckIdentifiers(const StagingRequest& request) {
  Problems problems;
  const auto check = [&](const std::u16string& identifier, const char* name) {
    if (IsInstallationIdentifier(identifier)) return;
    problems.push_back(std::string("The ") + name + " " + Quoted(identifier) +
                       " is not 64 digits of 0-9 and a-f.");
  };
  check(request.install_key, "install key");
  check(request.update_id, "update id");
  return problems;
}

// A copy of a tree into itself would not end, and an installation must not contain a stage.
Problems CheckOverlap(const StagingRequest& request, const UpdateLayout& layout) {
  const auto inside = [](const Path& path, const Path& root, const char* name) {
    return IsPathWithin(path, root) ? Problems{Quoted(path) + " lies inside " + name + "."}
                                    : Problems{};
  };
  Problems problems = inside(layout.state, request.release, "the release");
  Append(problems, inside(layout.state, request.target, "the installation"));
  Append(problems, inside(request.target, layout.state, "the state directory"));
  return problems;
}

Problems CheckRequest(const StagingRequest& request, const UpdateLayout& layout) {
  Problems problems = CheckIdentifiers(request);
  Append(problems, CheckOverlap(request, layout));
  Append(problems, CheckRelease(request.release, request.deletions));
  if (!problems.empty()) return problems;
  Append(problems,
         CheckPlaces(layout, request.target, FilesOf(request.release), request.deletions));
  if (IsRegularFile(layout.completed_marker)) {
    problems.push_back(
        "This update has been installed already: " + Quoted(layout.completed_marker) + " exists.");
  }
  return problems;
}

UpdaterArguments ArgumentsOf(const StagingRequest& request, const UpdateLayout& layout) {
  UpdaterArguments arguments;
  arguments.source = JoinPath(layout.stages, kReleaseName);
  arguments.target = request.target;
  arguments.restart = request.restart;
  arguments.state_file = layout.pending_marker;
  arguments.completed_file = layout.completed_marker;
  arguments.installed_manifest_file = layout.installed_manifest;
  arguments.workspace = layout.workspace;
  arguments.update_id = request.update_id;
  arguments.install_key = request.install_key;
  return arguments;
}

// The updater's own validation of the layout.
Problems CheckArguments(UpdaterArguments& arguments) {
  const std::u16string refusal = ValidateRequest(arguments);
  if (refusal.empty()) return {};
  return {"The updater would refuse the directories: " + Utf8FromUtf16(refusal)};
}

std::string PendingMarker(const StagingRequest& request) {
  if (!request.pending_marker.empty()) return request.pending_marker;
  return R"({"updateId": ")" + Utf8FromUtf16(request.update_id) + "\"}\n";
}

void WriteTexts(const StagingRequest& request, const UpdateLayout& layout,
                const UpdaterArguments& arguments) {
  WriteDurably(JoinPath(layout.stages, u"source-inventory.txt"),
               SerializeSourceInventory(arguments.source_inventory));
  WriteDurably(JoinPath(layout.stages, u"managed-deletions.txt"),
               SerializeManagedDeletionList(arguments.managed_deletions));
  WriteDurably(layout.pending_marker, PendingMarker(request));
}

Problems CheckLongestLine(const StagingRequest& request, UpdaterArguments arguments) {
  arguments.wait_pid = std::numeric_limits<std::uint32_t>::max();
  arguments.wait_process_created_at = std::numeric_limits<std::uint64_t>::max();
  arguments.has_wait_process_created_at = true;
  return CheckCommandLine(CommandLineOf(request.updater, arguments));
}

StagingRequest WithFullPaths(StagingRequest request) {
  for (const auto path :
       {&StagingRequest::release, &StagingRequest::target, &StagingRequest::state_root}) {
    request.*path = FullPath(request.*path);
  }
  return request;
}

UpdateLayout LayoutFor(const StagingRequest& request) {
  return LayoutOf(request.state_root, request.install_key, request.update_id);
}

StagedUpdate Plan(const StagingRequest& request) {
  const UpdateLayout layout = LayoutFor(request);
  StagedUpdate update{.problems = CheckRequest(request, layout)};
  if (!update.problems.empty()) return update;
  update.arguments = ArgumentsOf(request, layout);
  update.arguments.source_inventory = NormalizeSourceInventory(InventoryOf(request.release));
  update.arguments.managed_deletions =
      NormalizeManagedDeletionList(request.deletions, update.arguments.source_inventory);
  update.problems = CheckLongestLine(request, update.arguments);
  return update;
}

Problems LayOut(const StagingRequest& request, UpdaterArguments& arguments) {
  const UpdateLayout layout = LayoutFor(request);
  MakeDirectories(layout.workspace);
  MakeDirectories(layout.stages);
  if (QueryLinkStatus(arguments.source).kind == FileKind::not_found) {
    CopyRelease(request.release, layout, arguments.source);
  }
  Problems problems = CheckStage(arguments.source, arguments.source_inventory);
  if (problems.empty()) problems = CheckArguments(arguments);
  if (problems.empty()) WriteTexts(request, layout, arguments);
  return problems;
}

}  // namespace

StagedUpdate PlanUpdate(const StagingRequest& request) { return Plan(WithFullPaths(request)); }

StagedUpdate StageUpdate(const StagingRequest& request) {
  const StagingRequest full = WithFullPaths(request);
  StagedUpdate update = Plan(full);
  if (update.problems.empty()) update.problems = LayOut(full, update.arguments);
  return update;
}

ManagedDeletionList DeletionsSince(const Path& previous, const Path& release) {
  std::set<std::u16string> kept;
  for (const Path& path : FilesOf(release)) kept.insert(PathCompareKey(path));
  ManagedDeletionList deletions = FilesOf(previous);
  std::erase_if(deletions, [&](const Path& path) { return kept.contains(PathCompareKey(path)); });
  return deletions;
}

Path FullPath(const Path& path) {
  Path current;
  std::uint32_t code = Canonicalize(u".", current);
  ThrowIfFailed("canonicalize", code, u".");
  Path full = WeaklyCanonicalize(JoinPath(current, path), code);
  ThrowIfFailed("canonicalize", code, path);
  return full;
}

}  // namespace tolvarine::updater::staging
