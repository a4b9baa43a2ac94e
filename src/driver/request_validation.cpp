#include "driver/request_validation.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "files/canonical_path.h"
#include "files/file_operations.h"
#include "lists/release_path.h"
#include "platform/text.h"

namespace tolvarine::updater {
namespace {

using Message = const char16_t*;
constexpr Message kAcceptable = nullptr;

using PathField = Path UpdaterArguments::*;

struct CanonicalField {
  PathField field;
  Message refusal;
};

constexpr std::array<CanonicalField, 6> kCanonicalFields = {{
    {&UpdaterArguments::source, u"Could not canonicalize the release source."},
    {&UpdaterArguments::target, u"Could not canonicalize the installation target."},
    {&UpdaterArguments::workspace, u"Could not canonicalize the update workspace."},
    {&UpdaterArguments::state_file, u"Could not canonicalize the pending marker."},
    {&UpdaterArguments::completed_file, u"Could not canonicalize the completed marker."},
    {&UpdaterArguments::installed_manifest_file,
     u"Could not canonicalize the installed manifest marker."},
}};

// The paths that follow from the workspace.
struct Layout {
  Path updates;
  Path state;
  Path stages;

  explicit Layout(const UpdaterArguments& arguments)
      : updates(ParentPath(arguments.workspace)),
        state(ParentPath(updates)),
        stages(JoinPath(JoinPath(state, u"s"),
                        PathView(arguments.update_id).substr(0, kStageNameLength))) {}
};

Message CheckCanonical(UpdaterArguments& arguments) {
  for (const auto& [field, refusal] : kCanonicalFields) {
    std::uint32_t code = 0;
    arguments.*field = WeaklyCanonicalize(arguments.*field, code);
    if (code != 0) return refusal;
  }
  return kAcceptable;
}

Message CheckDirectories(const UpdaterArguments& arguments, const Layout& layout) {
  if (!IsSafeDirectory(arguments.source)) return u"The release source is not a safe directory.";
  if (!IsSafeDirectory(arguments.target)) {
    return u"The installation target is not a safe directory.";
  }
  if (!IsSafeDirectory(arguments.workspace)) {
    return u"The update workspace is not a safe directory.";
  }
  if (PathsEqual(arguments.source, arguments.target)) {
    return u"The release source and installation target are the same directory.";
  }
  if (!IsPathWithin(arguments.source, layout.stages)) {
    return u"The release source is outside the installation's authenticated stages directory.";
  }
  return kAcceptable;
}

bool LastComponentIs(PathView path, PathView expected) {
  return PathsEqual(Path(LastComponent(path)), Path(expected));
}

Message CheckWorkspaceNames(const UpdaterArguments& arguments, const Layout& layout) {
  if (!LastComponentIs(arguments.workspace, arguments.update_id)) {
    return u"The workspace update ID does not match the requested update ID.";
  }
  if (!LastComponentIs(layout.updates, u"updates")) {
    return u"The workspace is outside the expected updates directory.";
  }
  if (!LastComponentIs(layout.state, arguments.install_key)) {
    return u"The workspace installation key does not match the requested installation key.";
  }
  return kAcceptable;
}

Message CheckMarkers(const UpdaterArguments& arguments, const Layout& layout) {
  if (!PathsEqual(arguments.state_file, JoinPath(arguments.workspace, u"pending.json"))) {
    return u"The pending marker is outside the requested workspace.";
  }
  if (!PathsEqual(arguments.completed_file, JoinPath(arguments.workspace, u"completed.json"))) {
    return u"The completed marker is outside the requested workspace.";
  }
  if (!PathsEqual(arguments.installed_manifest_file,
                  JoinPath(layout.state, u"installed-manifest.json"))) {
    return u"The installed manifest marker is outside the installation state directory.";
  }
  return kAcceptable;
}

Message CheckTargetAndRelease(const UpdaterArguments& arguments) {
  if (IsPathWithin(arguments.workspace, arguments.target) ||
      IsPathWithin(arguments.target, arguments.workspace)) {
    return u"The update workspace overlaps the installation target.";
  }
  const FileStatus application = QueryStatus(JoinPath(arguments.source, kApplicationPath));
  if (application.kind != FileKind::regular || application.error != 0) {
    return u"The release source does not contain a regular Tolvarine.exe file.";
  }
  return kAcceptable;
}

// Folds case with the platform's CharLowerBuffW, unit by unit, and not with the comparison keys of
// release paths: the two fold some characters differently.
Path LoweredNormal(const Path& path) {
  Path text = LexicallyNormal(path);
  std::ranges::replace(text, u'/', u'\\');
  platform::CharLowerBuffW(text.data(), static_cast<std::uint32_t>(text.size()));
  return text;
}

}  // namespace

std::u16string ValidateRequest(UpdaterArguments& arguments) {
  Message refusal = CheckCanonical(arguments);
  if (refusal != kAcceptable) return refusal;
  const Layout layout(arguments);
  refusal = CheckDirectories(arguments, layout);
  if (refusal == kAcceptable) refusal = CheckWorkspaceNames(arguments, layout);
  if (refusal == kAcceptable) refusal = CheckMarkers(arguments, layout);
  if (refusal == kAcceptable) refusal = CheckTargetAndRelease(arguments);
  return refusal == kAcceptable ? std::u16string() : refusal;
}

bool IsSafeDirectory(PathView path) { return IsAbsolutePath(path) && !LastComponent(path).empty(); }

bool PathsEqual(Path a, Path b) {
  a = LoweredNormal(a);
  b = LoweredNormal(b);
  return a == b;
}

bool IsPathWithin(PathView path, PathView base) {
  const Path normal_path = LexicallyNormal(path);
  const Path normal_base = LexicallyNormal(base);
  const std::vector<PathView> elements = PathElements(normal_path);
  const std::vector<PathView> base_elements = PathElements(normal_base);
  if (base_elements.size() > elements.size()) return false;
  return std::ranges::equal(base_elements, std::span(elements).first(base_elements.size()),
                            [](PathView a, PathView b) { return PathsEqual(Path(a), Path(b)); });
}

}  // namespace tolvarine::updater
