#include "release/release_tree.h"

#include <algorithm>
#include <map>
#include <optional>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "files/unique_handle.h"
#include "lists/list_text.h"
#include "lists/release_path.h"
#include "platform/files.h"
#include "reasons/sentences.h"
#include "release/release_description.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

constexpr PathView kForbiddenUnits = u"<>:\"|?*";
constexpr char16_t kFirstPrintable = 0x20;

bool IsWellFormed(PathView text) {
  try {
    static_cast<void>(Utf8FromUtf16(text));
    return true;
  } catch (const SystemError&) {
    return false;
  }
}

// Why a single name may not be in a release, as the end of a sentence; nothing for one that may.
std::optional<std::string> FaultOfName(PathView name) {
  if (!IsWellFormed(name)) return "its name is not well-formed text";
  if (name.back() == u'.') return "its name ends in a full stop";
  if (name.back() == u' ') return "its name ends in a blank";
  const std::size_t forbidden = name.find_first_of(kForbiddenUnits);
  if (forbidden != PathView::npos) {
    return "its name holds the character " + Quoted(name.substr(forbidden, 1));
  }
  if (std::ranges::any_of(name, [](char16_t unit) { return unit < kFirstPrintable; })) {
    return "its name holds a control character";
  }
  if (!IsSafeReleasePath(name)) return "its name is that of a device";
  return std::nullopt;
}

class TreeReader {
 public:
  explicit TreeReader(const Path& release) : release_(release) {}

  ReleaseTree Read() {
    const FileStatus status = QueryLinkStatus(release_);
    if (status.kind != FileKind::directory) {
      Add("The release " + Quoted(release_) + " is not a plain directory.");
      return std::move(tree_);
    }
    ReadDirectory(release_);
    if (!keys_.contains(PathCompareKey(kApplicationKeyText))) {
      Add("There is no file Tolvarine.exe at the top level of the release.");
    }
    return std::move(tree_);
  }

 private:
  void Add(std::string problem) { tree_.problems.push_back(std::move(problem)); }

  // A directory whose name no release may hold is not entered: by that name one may reach another.
  void ReadDirectory(const Path& directory) {
    const std::uint32_t code =
        EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
          ReadEntry(entry);
          return 0;
        });
    if (code == 0) return;
    Add("The directory " + Quoted(directory) + " cannot be read: " + SystemMessage(code));
  }

  void ReadEntry(const TreeEntry& entry) {
    const Path relative = LexicallyRelative(entry.path, release_);
    // Empty for a name that is none, as another system may have put it there: "C:x".
    const PathView name = relative.empty() ? PathView(entry.path) : LastComponent(relative);
    const std::optional<std::string> fault = FaultOfName(name);
    if (relative.empty() || fault) {
      Add(Quoted(entry.path) + " cannot be in a release: " + fault.value_or("it is no name") + ".");
    } else if ((entry.attributes & platform::kFileAttributeReparsePoint) != 0) {
      Add(Quoted(relative) + " is a link or another reparse point.");
    } else if (KindOf(entry) == FileKind::directory) {
      ReadDirectory(entry.path);
    } else {
      ReadFile(entry.path, relative);
    }
  }

  void ReadFile(const Path& path, const Path& relative) {
    if (IsReservedPath(relative)) {
      Add(Quoted(relative) + " is the updater's own log or has the ending of its temporaries.");
    }
    if (GenericUtf8Path(relative).size() > kListPathByteLimit) {
      Add(Quoted(relative) + " is longer than the " + std::to_string(kListPathByteLimit) +
          " bytes of UTF-8 that a list takes.");
    }
    const auto [first, added] = keys_.emplace(PathCompareKey(relative), relative);
    if (!added) Add(Quoted(first->second) + " and " + Quoted(relative) + " differ only in case.");
    try {
      const LockedReleaseFile file(path);
      tree_.files.push_back(
          {relative, static_cast<std::uint64_t>(file.size()), Sha256OfLockedFile(file)});
    } catch (const std::exception& failure) {
      Add(Quoted(relative) + " cannot be locked and read: " + FailureText(failure));
    }
  }

  const Path& release_;
  ReleaseTree tree_;
  std::map<std::u16string, Path> keys_;  // And the first path that has the key.
};

}  // namespace

ReleaseTree ReadReleaseTree(const Path& release) { return TreeReader(release).Read(); }

}  // namespace tolvarine::updater::application
