#include "files/canonical_path.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "lists/release_path.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/handles.h"

namespace tolvarine::updater {
namespace {

constexpr std::uint32_t kFirstBufferUnits = 260;
constexpr PathView kExtendedServerPrefix = u"\\\\?\\UNC\\";
constexpr PathView kDeviceRootPrefix = u"\\\\?\\GLOBALROOT";

// The answer of the final-path query.
struct FinalPath {
  std::uint32_t code = 0;
  Path text{};
  bool device_form = false;  // The volume has no drive letter.
};

FinalPath ReadFinalPath(const FileHandle& file, std::uint32_t form) {
  FinalPath result;
  result.text.resize(kFirstBufferUnits);
  for (;;) {
    const auto size = static_cast<std::uint32_t>(result.text.size());
    const std::uint32_t length =
        platform::GetFinalPathNameByHandleW(file.get(), result.text.data(), size, form);
    if (length == 0) return {.code = platform::GetLastError()};
    // A length below `size` leaves the final zero out. Any other is the buffer that it takes, the
    // zero included, and the path may have grown again by the next call.
    result.text.resize(length);
    if (length < size) return result;
  }
}

FinalPath QueryFinalPath(const Path& path) {
  const FileHandle file(platform::CreateFile2(path.c_str(), platform::kFileReadAttributes,
                                              platform::kFileShareAll, platform::kOpenExisting,
                                              platform::kFileFlagBackupSemantics));
  if (!file) return {.code = platform::GetLastError()};
  FinalPath result = ReadFinalPath(file, platform::kVolumeNameDos);
  // The file is open, so this code means that its volume has no drive letter.
  if (result.code == platform::kErrorPathNotFound) {
    result = ReadFinalPath(file, platform::kVolumeNameNt);
    result.device_form = true;
  }
  return result;
}

// Removes the prefix that the final-path query puts before drive and server forms. Any other form
// keeps it: without it, the path would mean something else.
Path WithoutExtendedPrefix(Path path) {
  if (!path.starts_with(kExtendedLengthPrefix)) return path;
  Path inner = path.substr(kExtendedLengthPrefix.size());
  if (HasDrivePrefix(inner)) return inner;
  if (!path.starts_with(kExtendedServerPrefix)) return path;
  return u"\\\\" + path.substr(kExtendedServerPrefix.size());
}

}  // namespace

std::uint32_t Canonicalize(PathView path, Path& resolved) {
  FinalPath final_path;
  if (!path.empty()) final_path = QueryFinalPath(Path(path));
  resolved.clear();
  if (final_path.text.empty()) return final_path.code;
  resolved = final_path.device_form ? Path(kDeviceRootPrefix) + final_path.text
                                    : WithoutExtendedPrefix(std::move(final_path.text));
  return 0;
}

Path WeaklyCanonicalize(PathView path, std::uint32_t& code) {
  Path resolved;
  code = Canonicalize(path, resolved);
  if (code == 0) return resolved;
  if (!IsNotFoundError(code)) return {};

  // The longest existing head is resolved; the rest is appended as text. Once a component is
  // missing nothing below it is looked at, so that a long missing tail costs no calls.
  const Path normal = LexicallyNormal(path);
  const PathParts parts = DividePath(normal);
  Path result = Path(parts.root_name).append(parts.root_directory);
  bool resolving = true;
  for (const PathView component : Components(parts.relative)) {
    // `\\?\` followed by the component `C:` gives `C:`, which is why a missing path in the extended
    // form loses its prefix.
    AppendPath(result, component);
    if (!resolving) continue;
    code = Canonicalize(result, resolved);
    if (code == 0) {
      result = resolved;
    } else if (IsNotFoundError(code)) {
      resolving = false;
    } else {
      return {};
    }
  }
  code = 0;
  return result;
}

bool IsInsideRoot(PathView path, PathView root) {
  const Path relative = LexicallyRelative(path, root);
  if (relative.empty()) return false;
  if (relative == u".") return true;
  const std::vector<PathView> components = Components(DividePath(relative).relative);
  const bool climbs = !components.empty() && components.front() == u"..";
  return !climbs && !IsAbsolutePath(relative);
}

Path SafeJoin(PathView root, PathView relative, std::string_view label) {
  const auto unsafe = [&] { return std::runtime_error("Unsafe " + std::string(label) + " path"); };
  if (!IsSafeReleasePath(relative)) throw unsafe();
  // A path with a leading separator is safe so far, but joining it leaves the root as text.
  Path joined = LexicallyNormal(JoinPath(root, relative));
  if (!IsInsideRoot(joined, root)) throw unsafe();
  // Links are resolved for the test only: the caller acts on the lexical path, so that a link at
  // its end is seen as a link. A path that cannot be resolved counts as an escape.
  std::uint32_t code = 0;
  const Path resolved = WeaklyCanonicalize(joined, code);
  if (code != 0 || !IsInsideRoot(resolved, root)) {
    throw std::runtime_error(std::string(label) + " path escapes its root");
  }
  return joined;
}

}  // namespace tolvarine::updater
