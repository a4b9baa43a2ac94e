#include "text/path_algebra.h"

#include <algorithm>

namespace tolvarine::updater {
namespace {

constexpr std::size_t kDrivePrefixLength = 2;

bool IsDriveLetter(char16_t unit) {
  return (unit >= u'A' && unit <= u'Z') || (unit >= u'a' && unit <= u'z');
}

bool IsBareDrive(PathView path) {
  return path.size() == kDrivePrefixLength && HasDrivePrefix(path);
}

// True for `\\?` and `\\.` and `\??`, each followed by a separator that is not followed by another.
bool HasDevicePrefix(PathView path) {
  if (path.size() < 4 || !IsSeparator(path[0]) || !IsSeparator(path[3])) return false;
  if (path.size() > 4 && IsSeparator(path[4])) return false;
  const bool local_device = IsSeparator(path[1]) && (path[2] == u'?' || path[2] == u'.');
  const bool object_manager = path[1] == u'?' && path[2] == u'?';
  return local_device || object_manager;
}

std::size_t RootNameLength(PathView path) {
  if (HasDrivePrefix(path)) return kDrivePrefixLength;
  if (HasDevicePrefix(path)) return 3;
  const bool server =
      path.size() >= 3 && IsSeparator(path[0]) && IsSeparator(path[1]) && !IsSeparator(path[2]);
  if (!server) return 0;
  return std::min(path.find_first_of(u"\\/", 3), path.size());
}

bool SameUnits(PathView a, PathView b) {
  return std::ranges::equal(
      a, b, [](char16_t x, char16_t y) { return x == y || (IsSeparator(x) && IsSeparator(y)); });
}

void AppendUniform(Path& path, PathView text) {
  for (const char16_t unit : text) path.push_back(unit == u'/' ? u'\\' : unit);
}

// A relative part: its components, none of them empty, and whether a separator follows the last.
struct NormalForm {
  std::vector<PathView> components;
  bool trailing_separator = false;
};

// Resolves "." and ".." by text. A component is removed together with the separator behind it.
// Where the last one is removed, the separator before it therefore stays as a trailing one.
NormalForm ResolveDots(const std::vector<PathView>& components, bool rooted) {
  NormalForm normal;
  for (const PathView component : components) {
    normal.trailing_separator = component.empty() || component == u".";
    if (normal.trailing_separator) continue;
    const bool climbs = component == u"..";
    if (climbs && !normal.components.empty() && normal.components.back() != u"..") {
      normal.components.pop_back();
      normal.trailing_separator = true;
    } else if (!climbs || !rooted) {
      normal.components.push_back(component);
    }
  }
  if (normal.components.empty() || normal.components.back() == u"..") {
    normal.trailing_separator = false;
  }
  return normal;
}

// Only a drive can be the root name of a component, as in `C:x`: the others hold separators.
bool HasComponentWithRootName(PathView relative) {
  return std::ranges::any_of(Components(relative),
                             [](PathView component) { return RootNameLength(component) != 0; });
}

// True where both begin with `\\?\` and a drive.
bool BothHaveExtendedDrive(PathView a, PathView b) {
  const auto extended_drive = [](PathView path) {
    return path.starts_with(kExtendedLengthPrefix) &&
           HasDrivePrefix(path.substr(kExtendedLengthPrefix.size()));
  };
  return extended_drive(a) && extended_drive(b);
}

bool HasNoRelativeForm(PathView path, PathView base) {
  const PathParts path_parts = DividePath(path);
  const PathParts base_parts = DividePath(base);
  return !SameUnits(path_parts.root_name, base_parts.root_name) ||
         IsAbsolutePath(path) != IsAbsolutePath(base) ||
         (path_parts.root_directory.empty() && !base_parts.root_directory.empty()) ||
         HasComponentWithRootName(path_parts.relative) ||
         HasComponentWithRootName(base_parts.relative);
}

// How many levels the elements from `first` on lead down, less those that lead up.
int Depth(const std::vector<PathView>& elements, std::size_t first) {
  int depth = 0;
  for (std::size_t i = first; i < elements.size(); ++i) {
    if (elements[i] == u"..") {
      --depth;
    } else if (!elements[i].empty() && elements[i] != u".") {
      ++depth;
    }
  }
  return depth;
}

// Compares two elements of paths with the same root name. Apart from a root name, only a root
// directory begins with a separator, and root directories are equal whatever their lengths.
bool SameElement(PathView a, PathView b) {
  const bool root_directories =
      !a.empty() && !b.empty() && IsSeparator(a.front()) && IsSeparator(b.front());
  return root_directories || SameUnits(a, b);
}

}  // namespace

bool HasDrivePrefix(PathView path) {
  return path.size() >= kDrivePrefixLength && IsDriveLetter(path[0]) && path[1] == u':';
}

const char16_t* RootNameEnd(const char16_t* first, const char16_t* last) {
  return first + RootNameLength(PathView(first, static_cast<std::size_t>(last - first)));
}

PathParts DividePath(PathView path) {
  const std::size_t name = RootNameLength(path);
  std::size_t relative = name;
  while (relative < path.size() && IsSeparator(path[relative])) ++relative;
  return {path.substr(0, name), path.substr(name, relative - name), path.substr(relative)};
}

std::vector<PathView> Components(PathView relative) {
  std::vector<PathView> components;
  std::size_t start = 0;
  while (start < relative.size()) {
    std::size_t end = start;
    while (end < relative.size() && !IsSeparator(relative[end])) ++end;
    components.push_back(relative.substr(start, end - start));
    if (end == relative.size()) return components;
    start = end;
    while (start < relative.size() && IsSeparator(relative[start])) ++start;
  }
  if (!components.empty()) components.push_back(relative.substr(relative.size()));
  return components;
}

std::vector<PathView> PathElements(PathView path) {
  const PathParts parts = DividePath(path);
  std::vector<PathView> elements = Components(parts.relative);
  if (!parts.root_directory.empty()) elements.insert(elements.begin(), parts.root_directory);
  if (!parts.root_name.empty()) elements.insert(elements.begin(), parts.root_name);
  return elements;
}

PathView LastComponent(PathView path) {
  const PathView relative = DividePath(path).relative;
  const auto separator = std::find_if(relative.rbegin(), relative.rend(), IsSeparator);
  return relative.substr(static_cast<std::size_t>(relative.rend() - separator));
}

bool IsAbsolutePath(PathView path) {
  if (HasDrivePrefix(path)) {
    return path.size() > kDrivePrefixLength && IsSeparator(path[kDrivePrefixLength]);
  }
  return RootNameLength(path) != 0;
}

Path ParentPath(PathView path) {
  const PathParts parts = DividePath(path);
  const std::size_t root = parts.root_name.size() + parts.root_directory.size();
  std::size_t end = path.size();
  while (end > root && !IsSeparator(path[end - 1])) --end;
  while (end > root && IsSeparator(path[end - 1])) --end;
  return Path(path.substr(0, end));
}

Path JoinPath(PathView root, PathView relative) {
  Path joined(root);
  AppendPath(joined, relative);
  return joined;
}

void AppendPath(Path& path, PathView relative) {
  // `C:x` and `\x` are not absolute: they keep something of `path`.
  const PathParts parts = DividePath(relative);
  const bool other_root_name =
      !parts.root_name.empty() && !SameUnits(parts.root_name, DividePath(path).root_name);
  if (IsAbsolutePath(relative) || other_root_name) {
    path = relative;
    return;
  }
  if (!parts.root_directory.empty()) {
    path.resize(RootNameLength(path));
  } else if (!path.empty() && !IsSeparator(path.back()) && !IsBareDrive(path)) {
    path.push_back(u'\\');  // A separator behind a bare drive would make the path absolute.
  }
  path.append(relative.substr(parts.root_name.size()));
}

Path LexicallyNormal(PathView path) {
  if (path.empty()) return {};
  const PathParts parts = DividePath(path);
  const bool rooted = !parts.root_directory.empty();
  const NormalForm normal = ResolveDots(Components(parts.relative), rooted);

  Path result;
  result.reserve(path.size());
  AppendUniform(result, parts.root_name);
  if (rooted) result.push_back(u'\\');
  for (const PathView& component : normal.components) {
    if (&component != &normal.components.front()) result.push_back(u'\\');
    result.append(component);
  }
  if (normal.trailing_separator) result.push_back(u'\\');
  return result.empty() ? Path(u".") : result;
}

Path LexicallyRelative(PathView path, PathView base) {
  // Behind `\\?\` a drive is a component with a root name, which has no relative form. So the
  // prefix is removed, but only from both: a path with it and one without stay unrelated.
  if (BothHaveExtendedDrive(path, base)) {
    path.remove_prefix(kExtendedLengthPrefix.size());
    base.remove_prefix(kExtendedLengthPrefix.size());
  }
  if (HasNoRelativeForm(path, base)) return {};

  const std::vector<PathView> elements = PathElements(path);
  const std::vector<PathView> base_elements = PathElements(base);
  const std::size_t shorter = std::min(elements.size(), base_elements.size());
  std::size_t same = 0;
  while (same < shorter && SameElement(elements[same], base_elements[same])) ++same;
  if (same == elements.size() && same == base_elements.size()) return u".";

  // The first difference is never inside the root of `base`: the root names are equal, and so are
  // the root directories where `base` has one.
  const int climb = Depth(base_elements, same);
  if (climb < 0) return {};
  if (climb == 0 && (same == elements.size() || elements[same].empty())) return u".";

  // If only `path` has a root directory, that element replaces the ".." before it.
  Path relative;
  for (int level = 0; level < climb; ++level) AppendPath(relative, u"..");
  for (std::size_t i = same; i < elements.size(); ++i) AppendPath(relative, elements[i]);
  return relative;
}

Path ExtendedLengthPath(PathView path) {
  Path uniform;
  AppendUniform(uniform, path);
  if (uniform.starts_with(kExtendedLengthPrefix)) return uniform;
  if (uniform.starts_with(u"\\\\")) return u"\\\\?\\UNC\\" + uniform.substr(2);
  if (!IsAbsolutePath(path)) return uniform;
  return Path(kExtendedLengthPrefix) + uniform;
}

}  // namespace tolvarine::updater
