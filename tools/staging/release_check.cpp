#include "staging/release_check.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>

#include "engine/entry_temporary.h"
#include "files/failure.h"
#include "files/file_operations.h"
#include "files/locked_release_file.h"
#include "files/unique_handle.h"
#include "lists/list_text.h"
#include "lists/release_path.h"
#include "platform/files.h"
#include "platform/text.h"
#include "text/conversion.h"
#include "text/decimal.h"
#include "text/hex.h"
#include "text/utf8.h"

namespace tolvarine::updater::staging {
namespace {

constexpr std::size_t kPathLimit = 259;           // Units, for a path without the extended form.
constexpr std::size_t kDirectoryLimit = 247;      // Units, for a directory that is made.
constexpr std::size_t kCommandLineLimit = 32767;  // Units, the zero at the end included.
constexpr std::size_t kHeaderSize = 3;            // Of either list text, in bytes.

constexpr PathView kForbiddenUnits = u"<>:\"|?*";
constexpr char16_t kFirstPrintable = 0x20;

std::string Sentence(std::initializer_list<std::string_view> parts) {
  std::string sentence;
  for (const std::string_view part : parts) sentence.append(part);
  return sentence;
}

std::string Decimal(std::uint64_t number) {
  std::string text;
  AppendDecimal(text, number);
  return text;
}

// "1030 bytes long, 6 more than the 1024"
std::string Excess(std::size_t size, std::string_view measured, std::size_t limit) {
  return Sentence({Decimal(size), " ", measured, ", ", Decimal(size - limit), " more than the ",
                   Decimal(limit)});
}

// --- Names -------------------------------------------------------------------------------------

bool IsWellFormed(PathView text) {
  try {
    static_cast<void>(Utf8FromUtf16(text));
    return true;
  } catch (const SystemError&) {
    return false;
  }
}

// Returns the reason, as the end of a sentence, if a name must not be in an update.
std::optional<std::string> NameFault(PathView name) {
  const auto fault = [&](std::string_view rule) { return Quoted(name).append(rule); };
  if (name.empty()) return "it has an empty name in it";
  if (!IsWellFormed(name)) return fault(" is no well-formed text");
  if (name == u"." || name == u"..") return fault(" does not name a file");
  if (name.back() == u'.') return fault(" ends in a full stop");
  if (name.back() == u' ') return fault(" ends in a blank");
  const std::size_t forbidden = name.find_first_of(kForbiddenUnits);
  if (forbidden != PathView::npos) {
    return fault(" holds the character ") + Quoted(name.substr(forbidden, 1));
  }
  if (std::ranges::any_of(name, [](char16_t unit) { return unit < kFirstPrintable; })) {
    return fault(" holds a control character");
  }
  if (PathCompareKey(name).ends_with(kTemporarySuffix)) {
    return fault(" has the ending of the updater's own temporaries, which it removes");
  }
  if (!IsSafeReleasePath(name)) return fault(" is the name of a device");
  return std::nullopt;
}

// The same for a whole path of a command line or a list.
std::optional<std::string> PathFault(PathView path) {
  const PathParts parts = DividePath(path);
  if (path.empty()) return "it is empty";
  if (!parts.root_name.empty() || !parts.root_directory.empty()) {
    return "it is not relative to the installation";
  }
  for (const PathView name : Components(parts.relative)) {
    if (auto fault = NameFault(name)) return fault;
  }
  return std::nullopt;
}

// The size in bytes of a path in a list; an estimate if the path cannot be in a list.
std::size_t ListedSize(PathView path) {
  return IsWellFormed(path) ? GenericUtf8Path(path).size() : path.size();
}

// --- The tree ----------------------------------------------------------------------------------

struct ReleaseFile {
  Path path;
  std::uint64_t size = 0;
};

// The results of a walk through a release.
struct Findings {
  Problems problems{};
  std::vector<ReleaseFile> files{};
  std::vector<Path> directories{};
};

// Returns 0 if the count cannot be read; the attempt to lock the file then reports the failure.
std::uint32_t LinkCount(const Path& path) {
  const FileHandle file(platform::CreateFileW(path.c_str(), platform::kFileReadAttributes,
                                              platform::kFileShareAll, platform::kOpenExisting,
                                              platform::kFileFlagOpenReparsePoint));
  platform::ByHandleFileInformation information;
  const bool known = file && platform::GetFileInformationByHandle(file.get(), &information);
  return known ? information.number_of_links : 0;
}

void CheckFile(const TreeEntry& entry, const Path& relative, Problems& problems) {
  const std::uint32_t links = LinkCount(entry.path);
  if (links > 1) {
    problems.push_back(Sentence({Quoted(relative), " has ", Decimal(links),
                                 " names (hard links), a release file must have one."}));
    return;
  }
  try {
    const LockedReleaseFile file(entry.path);
  } catch (const std::exception& failure) {
    problems.push_back(
        Sentence({Quoted(relative), " cannot be locked and read: ", FailureText(failure)}));
  }
}

void CheckDirectory(const Path& release, const Path& directory, Findings& findings);

// Checks only the entry's own name, since the names of its directories are checked before. Does not
// open an entry with an unsafe name: that name may open another file, or none.
void CheckEntry(const Path& release, const TreeEntry& entry, Findings& findings) {
  // Empty for a name such as "C:x", which another system may have made.
  Path relative = LexicallyRelative(entry.path, release);
  const PathView name = relative.empty() ? PathView(entry.path) : LastComponent(relative);
  if (relative.empty()) relative = entry.path;
  const auto fault = NameFault(name);
  if (fault) {
    findings.problems.push_back(
        Sentence({Quoted(relative), " cannot be in a release: ", *fault, "."}));
  }
  if ((entry.attributes & platform::kFileAttributeReparsePoint) != 0) {
    findings.problems.push_back(
        Sentence({Quoted(relative), " is a link or another reparse point."}));
  } else if (KindOf(entry) == FileKind::directory) {
    findings.directories.push_back(relative);
    if (!fault) CheckDirectory(release, entry.path, findings);
  } else {
    findings.files.push_back({relative, entry.size});
    if (!fault) CheckFile(entry, relative, findings.problems);
  }
}

void CheckDirectory(const Path& release, const Path& directory, Findings& findings) {
  const std::uint32_t code =
      EnumerateDirectory(directory, [&](const TreeEntry& entry) -> std::uint32_t {
        CheckEntry(release, entry, findings);
        return 0;
      });
  if (code == 0) return;
  findings.problems.push_back(
      Sentence({"The directory ", Quoted(directory), " cannot be read: ", SystemMessage(code)}));
}

void CheckRoot(const Path& release, Problems& problems) {
  const FileStatus status = QueryLinkStatus(release);
  if (status.kind == FileKind::directory) return;
  const bool link = status.kind == FileKind::symlink || status.kind == FileKind::junction;
  problems.push_back(Sentence({"The release ", Quoted(release),
                               link ? " is a link, not a directory." : " is not a directory."}));
}

void CheckExecutable(const std::vector<ReleaseFile>& files, Problems& problems) {
  const auto is_application = [](const ReleaseFile& file) {
    return SamePathKey(file.path, kApplicationPath);
  };
  if (std::ranges::none_of(files, is_application)) {
    problems.push_back("There is no file Tolvarine.exe at the top level of the release.");
  }
}

// --- The lists ---------------------------------------------------------------------------------

// The words for the limits of a list. `noun` names its rows.
struct ListRule {
  std::string_view noun;
  std::string_view list;
};

constexpr ListRule kInventoryRule = {"files", "The list of the release's files"};
constexpr ListRule kDeletionRule = {"deletions", "The list of deletions"};

void CheckListSize(const ListRule& rule, std::size_t rows, std::size_t text_size,
                   Problems& problems) {
  if (rows > kListRowLimit) {
    problems.push_back(Sentence(
        {"There are ", Excess(rows, rule.noun, kListRowLimit), " that an update may have."}));
  }
  if (text_size > kListTextByteLimit) {
    problems.push_back(
        Sentence({rule.list, " takes ", Excess(text_size, "bytes", kListTextByteLimit),
                  " that fit on the command line."}));
  }
}

void CheckPathLength(PathView path, Problems& problems) {
  const std::size_t size = ListedSize(path);
  if (size <= kListPathByteLimit) return;
  problems.push_back(Sentence({Quoted(path), " is ", Excess(size, "bytes long", kListPathByteLimit),
                               " that a list takes."}));
}

using Keys =
    std::map<std::u16string, Path>;  // Comparison keys, each with the first path that has it.

void AddKey(Keys& keys, const Path& path, Problems& problems) {
  const auto [first, added] = keys.emplace(PathCompareKey(path), path);
  if (added) return;
  if (first->second == path) {
    problems.push_back(Sentence({Quoted(path), " is named twice."}));
  } else {
    problems.push_back(
        Sentence({Quoted(first->second), " and ", Quoted(path), " differ only in case."}));
  }
}

// The size of the text that SerializeSourceInventory would write.
std::size_t InventoryTextSize(const std::vector<ReleaseFile>& files) {
  constexpr std::size_t kPunctuation = 3;  // Two colons and the newline.
  std::size_t size = kHeaderSize;
  for (const ReleaseFile& file : files) {
    size +=
        2 * ListedSize(file.path) + Decimal(file.size).size() + kSha256DigitCount + kPunctuation;
  }
  return size;
}

std::size_t DeletionTextSize(const ManagedDeletionList& deletions) {
  std::size_t size = kHeaderSize;
  for (const Path& path : deletions) size += 2 * ListedSize(path) + 1;
  return size;
}

Keys CheckFiles(const std::vector<ReleaseFile>& files, Problems& problems) {
  Keys keys;
  for (const ReleaseFile& file : files) {
    CheckPathLength(file.path, problems);
    AddKey(keys, file.path, problems);
  }
  CheckListSize(kInventoryRule, files.size(), InventoryTextSize(files), problems);
  return keys;
}

// Reports a deletion whose path, or whose parent's path, is in the release. One update cannot
// replace a file by a directory or the reverse.
void CheckAgainstRelease(const Path& deletion, const Keys& files, const Keys& directories,
                         Problems& problems) {
  const auto problem = [&](std::string_view what) {
    problems.push_back(Sentence({"The deletion ", Quoted(deletion), what}));
  };
  if (files.contains(PathCompareKey(deletion))) problem(" names a file of the release.");
  if (directories.contains(PathCompareKey(deletion))) problem(" names a directory of the release.");
  for (Path parent = ParentPath(deletion); !parent.empty(); parent = ParentPath(parent)) {
    if (files.contains(PathCompareKey(parent))) problem(" lies below a file of the release.");
  }
}

void CheckDeletions(const ManagedDeletionList& deletions, const Keys& files,
                    const std::vector<Path>& release_directories, Problems& problems) {
  Keys directories;
  for (const Path& path : release_directories) directories.emplace(PathCompareKey(path), path);
  Keys keys;
  for (const Path& path : deletions) {
    if (const auto fault = PathFault(path)) {
      problems.push_back(
          Sentence({"The deletion ", Quoted(path), " cannot be made: ", *fault, "."}));
      continue;
    }
    CheckPathLength(path, problems);
    AddKey(keys, path, problems);
    CheckAgainstRelease(path, files, directories, problems);
  }
  CheckListSize(kDeletionRule, deletions.size(), DeletionTextSize(deletions), problems);
}

// --- Places ------------------------------------------------------------------------------------

// `suffix` is the number of units that the file's temporary has more than the file.
void CheckPlace(const Path& root, PathView relative, std::size_t suffix, std::string_view where,
                Problems& problems) {
  const Path path = JoinPath(root, relative);
  const Path directory = ParentPath(path);
  const auto problem = [&](std::string_view what, std::size_t size, std::size_t limit) {
    problems.push_back(Sentence({Quoted(relative), what, where, " of ",
                                 Excess(size, "units", limit), " that Windows takes."}));
  };
  if (path.size() + suffix > kPathLimit) {
    problem(" makes a path in ", path.size() + suffix, kPathLimit);
  } else if (directory.size() > kDirectoryLimit) {
    problem(" needs a directory in ", directory.size(), kDirectoryLimit);
  }
}

// An existing file gets a copy in the backup, so it must be a plain file, and its path there must
// not be too long.
void CheckInstalled(const Path& target, const Path& relative, const Path& backup,
                    Problems& problems) {
  const FileKind kind = QueryLinkStatus(JoinPath(target, relative)).kind;
  if (kind == FileKind::regular) {
    CheckPlace(backup, relative, 0, "the backup", problems);
  } else if (kind != FileKind::not_found) {
    problems.push_back(Sentence({Quoted(relative), " is no plain file in the installation."}));
  }
}

}  // namespace

Problems CheckRelease(const Path& release, const ManagedDeletionList& deletions) {
  Findings findings;
  CheckRoot(release, findings.problems);
  if (!findings.problems.empty()) return findings.problems;
  CheckDirectory(release, release, findings);
  CheckExecutable(findings.files, findings.problems);
  const Keys files = CheckFiles(findings.files, findings.problems);
  CheckDeletions(deletions, files, findings.directories, findings.problems);
  return findings.problems;
}

Problems CheckPlaces(const UpdateLayout& layout, const Path& target, const std::vector<Path>& files,
                     const ManagedDeletionList& deletions) {
  Problems problems;
  const Path source = JoinPath(layout.stages, kReleaseName);
  const Path backup = JoinPath(layout.transaction, u"backup");
  for (const Path& file : files) {
    CheckPlace(source, file, 0, "the stage", problems);
    CheckPlace(target, file, kTemporarySuffix.size(), "the installation", problems);
    CheckInstalled(target, file, backup, problems);
  }
  for (const Path& file : deletions) {
    CheckPlace(target, file, 0, "the installation", problems);
    CheckInstalled(target, file, backup, problems);
  }
  return problems;
}

Problems CheckCommandLine(std::u16string_view line) {
  const std::size_t size = line.size() + 1;
  if (size <= kCommandLineLimit) return {};
  return {Sentence({"The updater's command line has ", Excess(size, "units", kCommandLineLimit),
                    " that Windows takes: the release needs fewer files, or shorter paths."})};
}

std::vector<Path> FilesOf(const Path& directory) {
  std::vector<Path> files;
  const std::uint32_t code = EnumerateTree(directory, [&](const TreeEntry& entry) -> std::uint32_t {
    if (KindOf(entry) != FileKind::directory) {
      files.push_back(LexicallyRelative(entry.path, directory));
    }
    return 0;
  });
  if (code != 0) throw FilesystemError("enumerate", code, directory);
  return files;
}

std::string Quoted(PathView path) {
  std::string text = path.empty() ? std::string() : LenientUtf8(path);
  std::ranges::replace(text, '\\', '/');
  return Sentence({"\"", text, "\""});
}

std::string FailureText(const std::exception& failure) {
  const std::string_view narrow = failure.what();
  if (narrow.empty()) return {};
  std::u16string wide;
  const auto convert = [&](std::int32_t length, char16_t* output, std::int32_t size) {
    return platform::MultiByteToWideChar(FileSystemCodePage(), 0, narrow.data(), length, output,
                                         size);
  };
  static_cast<void>(AppendConverted(wide, narrow.size(), convert));
  return LenientUtf8(wide);
}

}  // namespace tolvarine::updater::staging
