// The properties of the path algebra. The first two lines of an input are a path and a base.

#include <algorithm>

#include "files/canonical_path.h"
#include "fuzz_text.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::fuzz {
namespace {

std::size_t RootLength(PathView path) { return DividePath(path).root_name.size(); }

// Text alone can make a root of what was none: `.\C:.` is `C:.`, which is a drive and a full stop.
// What is normal stays so where that did not happen.
bool KeepsItsRoot(PathView path) { return RootLength(LexicallyNormal(path)) == RootLength(path); }

// What relations do not tell apart: a separator at the end, and nothing from ".".
Path WithoutEnd(Path path) {
  if (!path.empty() && IsSeparator(path.back())) path.pop_back();
  return path == u"." ? Path() : path;
}

void ExpectParts(PathView path) {
  const PathParts parts = DividePath(path);
  ExpectSame("the parts are the path", path,
             Path(parts.root_name).append(parts.root_directory).append(parts.relative), path);
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
  ExpectSame("the last component is the last", components.empty() ? PathView() : components.back(),
             LastComponent(path), path);
  const Path parent = ParentPath(path);
  Expect("a parent is how its path begins", path.starts_with(parent), path);
  ExpectSame("only a root is its own parent", parts.relative.empty(), parent == path, path);
}

void ExpectNormal(PathView path) {
  const Path normal = LexicallyNormal(path);
  Expect("a normal form has one kind of separator", normal.find(u'/') == Path::npos, path);
  ExpectSame("only an empty path has an empty normal form", path.empty(), normal.empty(), path);
  if (normal == u"." || !KeepsItsRoot(path)) return;
  ExpectSame("a normal form stays as it is", normal, LexicallyNormal(normal), path);

  const bool rooted = !DividePath(path).root_directory.empty();
  const std::size_t root = RootLength(path) + (rooted ? 1 : 0);
  const std::vector<Path> names = Split(PathView(normal).substr(root), u'\\');
  bool climbing = !rooted;
  for (const Path& name : names) {
    climbing = climbing && name == u"..";
    Expect("only a normal form without a root climbs, and only in front",
           name != u"." && (name != u".." || climbing) && (!name.empty() || &name == &names.back()),
           path);
  }
}

// `\\?\C:a` has the relative form of `C:a` and is joined as the component that it is: no path of it
// leads anywhere on Windows, and no canonical root is one.
bool IsHalfADrive(PathView path) {
  if (!path.starts_with(kExtendedLengthPrefix)) return false;
  path.remove_prefix(kExtendedLengthPrefix.size());
  return HasDrivePrefix(path) && !IsAbsolutePath(path);
}

// `path` and `base` are absolute and normal.
void ExpectContainment(const Path& path, const Path& base) {
  const Path outer = WithoutEnd(base);
  const Path inner = WithoutEnd(path);
  const bool inside = inner == outer || inner.starts_with(outer + u"\\");
  // Nothing is inside of a component such as `C:x`, nor `\\s` inside of `\\s\`, and what follows a
  // server alone may be a root of its own: `\??\x`.
  const bool odd = inner.find(u':', 2) != Path::npos || outer.find(u':', 2) != Path::npos ||
                   DividePath(path).root_directory.empty() ||
                   DividePath(base).root_directory.empty();
  if (odd && !IsInsideRoot(path, base)) return;
  ExpectSame("inside is what begins with the root", inside, IsInsideRoot(path, base), path, base);
}

void ExpectRelations(PathView given_path, PathView given_base) {
  const Path path = LexicallyNormal(given_path);
  const Path base = LexicallyNormal(given_base);
  if (IsAbsolutePath(path))
    ExpectSame("an absolute path is joined as it is", path, JoinPath(given_base, path), path, base);
  if (!KeepsItsRoot(given_path) || !KeepsItsRoot(given_base) || IsHalfADrive(base)) return;
  if (IsAbsolutePath(path) && IsAbsolutePath(base)) ExpectContainment(path, base);
  const Path relative = LexicallyRelative(path, base);
  // As text, what leads up from an unknown place cannot be undone, nor what makes another root.
  const Path joined = JoinPath(base, relative);
  const bool climbs = base.find(u"..") != Path::npos;
  const bool same_root = RootLength(joined) == RootLength(base) && KeepsItsRoot(joined);
  if (relative.empty() || IsAbsolutePath(relative) || climbs || !same_root) return;
  const Path back = LexicallyNormal(joined);
  ExpectSame("joining a relative form leads back", WithoutEnd(path), WithoutEnd(back), path, base);
}

void ExpectExtended(PathView path) {
  const Path extended = ExtendedLengthPath(path);
  ExpectSame("what is extended stays", extended, ExtendedLengthPath(extended), path);
  const bool whole = HasDrivePrefix(path) && IsAbsolutePath(path);
  if (whole) Expect("a whole path is extended", extended.starts_with(u"\\\\?\\"), path);
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
