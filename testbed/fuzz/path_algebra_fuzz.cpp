// The properties of the path algebra. The first two lines of an input are a path and a base.

#include <algorithm>

#include "files/canonical_path.h"
#include "fuzz_text.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::fuzz {
namespace {

std::size_t RootLength(PathView path) { return DividePath(path).root_name.size(); }

// Normalization of text can make a root name of a component: `.\C:.` becomes `C:.`, a drive and a
// full stop. The properties of normal paths hold where that does not happen.
bool KeepsItsRoot(PathView path) { return RootLength(LexicallyNormal(path)) == RootLength(path); }

// Relations ignore a separator at the end, and treat "." like an empty path.
Path WithoutEnd(Path path) {
  if (!path.empty() && IsSeparator(path.back())) path.pop_back();
  return path == u"." ? Path() : path;
}

void ExpectParts(PathView path) {
  const PathParts parts = DividePath(path);
  ExpectSame("the parts are the path",
             Path(parts.root_name).append(parts.root_directory).append(parts.relative), path, path);
  Expect("a root directory is separators alone",
         std::ranges::all_of(parts.root_directory, IsSeparator) &&
             (parts.relative.empty() || !IsSeparator(parts.relative.front())),
         path);
  const std::vector<PathView> components = Components(parts.relative);
  for (const PathView& component : components) {
    Expect("components hold no separator, and only the last is empty",
           std::ranges::none_of(component, IsSeparator) &&
               (!component.empty() || &component == &components.back()),
           path);
  }
  ExpectSame("the last component is the last", LastComponent(path),
             components.empty() ? PathView() : components.back(), path);
  const Path parent = ParentPath(path);
  Expect("a path begins with its parent", path.starts_with(parent), path);
  ExpectSame("only a root is its own parent", parent == path, parts.relative.empty(), path);
}

void ExpectNormal(PathView path) {
  const Path normal = LexicallyNormal(path);
  Expect("a normal form has one kind of separator", normal.find(u'/') == Path::npos, path);
  ExpectSame("only an empty path has an empty normal form", normal.empty(), path.empty(), path);
  if (normal == u"." || !KeepsItsRoot(path)) return;
  ExpectSame("a normal form stays as it is", LexicallyNormal(normal), normal, path);

  const bool rooted = !DividePath(path).root_directory.empty();
  const std::size_t root = RootLength(path) + (rooted ? 1 : 0);
  const std::vector<Path> names = Split(PathView(normal).substr(root), u'\\');
  bool climbing = !rooted;
  for (const Path& name : names) {
    climbing = climbing && name == u"..";
    Expect("\"..\" is only at the start of a normal form without a root",
           name != u"." && (name != u".." || climbing) && (!name.empty() || &name == &names.back()),
           path);
  }
}

// `\\?\C:a`: LexicallyRelative treats it like `C:a`, JoinPath as a component. Windows resolves no
// path below it, and no canonical root has this form.
bool IsExtendedDriveRelative(PathView path) {
  if (!path.starts_with(kExtendedLengthPrefix)) return false;
  path.remove_prefix(kExtendedLengthPrefix.size());
  return HasDrivePrefix(path) && !IsAbsolutePath(path);
}

// `path` and `base` are absolute and normal.
void ExpectContainment(const Path& path, const Path& base) {
  const Path outer = WithoutEnd(base);
  const Path inner = WithoutEnd(path);
  const bool inside = inner == outer || inner.starts_with(outer + u"\\");
  // Nothing is inside a component such as `C:x`, and `\\s` is not inside `\\s\`. What follows a
  // server alone can be a root of its own: `\??\x`.
  const bool odd = inner.find(u':', 2) != Path::npos || outer.find(u':', 2) != Path::npos ||
                   DividePath(path).root_directory.empty() ||
                   DividePath(base).root_directory.empty();
  if (odd && !IsInsideRoot(path, base)) return;
  ExpectSame("a path inside a root begins with it", IsInsideRoot(path, base), inside, path, base);
}

void ExpectRelations(PathView given_path, PathView given_base) {
  const Path path = LexicallyNormal(given_path);
  const Path base = LexicallyNormal(given_base);
  if (IsAbsolutePath(path))
    ExpectSame("an absolute path is joined as it is", JoinPath(given_base, path), path, path, base);
  if (!KeepsItsRoot(given_path) || !KeepsItsRoot(given_base) || IsExtendedDriveRelative(base))
    return;
  if (IsAbsolutePath(path) && IsAbsolutePath(base)) ExpectContainment(path, base);
  const Path relative = LexicallyRelative(path, base);
  // Text alone cannot undo ".." at the start of a base, nor a join that makes another root.
  const Path joined = JoinPath(base, relative);
  const bool climbs = base.find(u"..") != Path::npos;
  const bool same_root = RootLength(joined) == RootLength(base) && KeepsItsRoot(joined);
  if (relative.empty() || IsAbsolutePath(relative) || climbs || !same_root) return;
  const Path back = LexicallyNormal(joined);
  ExpectSame("a base joined with the relative path is the path", WithoutEnd(back), WithoutEnd(path),
             path, base);
}

void ExpectExtended(PathView path) {
  const Path extended = ExtendedLengthPath(path);
  ExpectSame("an extended path stays as it is", ExtendedLengthPath(extended), extended, path);
  const bool full = HasDrivePrefix(path) && IsAbsolutePath(path);
  if (full) Expect("a full path is extended", extended.starts_with(u"\\\\?\\"), path);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater::fuzz;
  std::vector<std::u16string> lines = WideLines(Bytes(data, size));
  lines.resize(2);
  ExpectParts(lines[0]);
  ExpectNormal(lines[0]);
  ExpectExtended(lines[0]);
  ExpectRelations(lines[0], lines[1]);
  ExpectRelations(lines[0], lines[0]);
  return 0;
}
