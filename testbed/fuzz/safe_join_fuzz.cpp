// SafeJoin. The first line of an input chooses a root, the second is the relative path. The target
// makes a file at each path that is accepted: on disks with links that lead out of the root,
// nothing outside the root may change.

#include <algorithm>
#include <stdexcept>

#include "files/canonical_path.h"
#include "fuzz_text.h"
#include "platform/files.h"
#include "text/system_error.h"

namespace tolvarine::updater::fuzz {
namespace {

constexpr PathView kRoots[] = {u"C:\\Root", u"C:\\Root\\Data", u"C:\\", u"\\\\srv\\share\\a"};
constexpr PathView kVolumes[] = {u"C:\\", u"D:\\", u"\\\\srv\\share\\"};

// The targets of links out of the root exist: SafeJoin leaves other links to the open, which
// refuses them.
void SetUp(simulated::Computer& computer) {
  computer.disks.AddVolume(u'D');
  computer.disks.AddVolume(0).share = u"\\\\srv\\share";
  computer.disk.WriteFile(u"C:/Root/Data/File.txt", "inside");
  computer.disk.WriteFile(u"C:/Else/x", "outside");
  computer.disk.WriteFile(u"C:/Rooted/x", "outside");
  computer.disk.WriteFile(u"D:/far/x", "outside");
  computer.disk.MakeDirectory(u"//srv/share/a/b");
  computer.disk.MakeSymbolicLink(u"C:/Root/in", u"Data", true);
  computer.disk.MakeSymbolicLink(u"C:/Root/nowhere", u"Data\\new", false);
  computer.disk.MakeJunction(u"C:/Root/out", u"C:\\Else");
  computer.disk.MakeSymbolicLink(u"C:/Root/file", u"..\\Else\\x", false);
  computer.disk.MakeSymbolicLink(u"C:/Root/Data/up", u"..", true);
  computer.disk.MakeJunction(u"C:/far", u"D:\\far");
  computer.disk.MakeSymbolicLink(u"//srv/share/a/out", u"..", true);
}

// The joined path; empty where SafeJoin refuses it.
Path Joined(PathView root, PathView relative) {
  try {
    return SafeJoin(root, relative, "fuzzed");
  } catch (const SystemError& failure) {
    ExpectSame("only a lone surrogate has no UTF-8", std::to_string(failure.code()),
               std::string("1113"), relative);
  } catch (const std::runtime_error& failure) {
    const std::string text = failure.what();
    Expect("a refusal names its reason",
           text == "Unsafe fuzzed path" || text == "fuzzed path escapes its root", text);
  }
  return {};
}

// No link has these letters in its name, so that such a path is below its root.
bool IsHarmless(PathView relative) {
  return !relative.empty() && relative.size() < 200 &&
         relative.find_first_not_of(u"yz\\") == PathView::npos &&
         relative.find(u"\\\\") == PathView::npos && relative.front() != u'\\' &&
         relative.back() != u'\\';
}

// Everything that is on the disks outside the root, as text.
std::string Outside(const simulated::Computer& computer, const Path& root) {
  std::string outside;
  for (const PathView volume : kVolumes) {
    for (const auto& [name, content] : computer.disk.Tree(volume)) {
      const Path path = Path(volume) + name;
      if (!path.starts_with(root)) outside += Shown(path) + "=" + content + " ";
    }
  }
  return outside;
}

// Makes the parent directories and the file, as the program does. This can fail where a parent is a
// file.
void MakeFile(const Path& path) {
  for (std::size_t at = 3; (at = path.find(u'\\', at)) != Path::npos; ++at) {
    platform::CreateDirectoryW(path.substr(0, at).c_str());
  }
  const platform::Handle file =
      platform::CreateFileW(path.c_str(), platform::kGenericWrite, platform::kFileShareAll,
                            platform::kCreateAlways, platform::kFileAttributeNormal);
  if (file != platform::kInvalidHandle) platform::CloseHandle(file);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater;
  using namespace tolvarine::updater::fuzz;
  std::vector<std::u16string> lines = WideLines(Bytes(data, size));
  lines.resize(2);
  const Path root(kRoots[lines[0].empty() ? 0 : lines[0][0] % std::size(kRoots)]);
  const Path& relative = lines[1];
  simulated::Computer computer;
  SetUp(computer);
  computer.MakeCurrent();

  const Path joined = Joined(root, relative);
  const Path below = root.back() == u'\\' ? root : root + u"\\";
  if (IsHarmless(relative)) ExpectSame("a harmless path is accepted", joined, below + relative);
  if (joined.empty()) return 0;
  Expect("a joined path is the root, or a plain path below it",
         joined == root ||
             (joined.starts_with(below) && IsPlainPath(PathView(joined).substr(below.size()))),
         joined);
  const std::string before = Outside(computer, below);
  MakeFile(joined);
  ExpectSame("nothing outside the root changes", Outside(computer, below), before, root, relative);
  return 0;
}
