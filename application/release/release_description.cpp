#include "release/release_description.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>

#include "engine/entry_temporary.h"
#include "lists/list_text.h"
#include "lists/release_path.h"
#include "release/strict_json.h"
#include "text/hex.h"
#include "text/utf8.h"

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

// The object, its arrays, and the objects in them, for as many files and removed ones as there may
// be.
constexpr JsonLimits kJsonLimits = {.depth = 3, .values = 6 * kDescriptionFileLimit};
constexpr std::size_t kNameLimit = 64;  // Characters of a channel or a version.
constexpr std::uint64_t kLargestSequence = std::uint64_t{1} << 53;
constexpr std::uint64_t kLargestTotal = std::uint64_t{1} << 53;

[[noreturn]] void Refuse(const std::string& what) {
  throw UnsoundRelease("The description of the release is not sound: " + what + ".");
}

void Require(bool condition, const std::string& what) {
  if (!condition) Refuse(what);
}

std::string InQuotes(PathView path) { return "\"" + GenericUtf8Path(path) + "\""; }

bool IsChannel(const std::string& text) {
  return !text.empty() && text.size() <= kNameLimit && std::ranges::all_of(text, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-';
  });
}

bool IsVersion(const std::string& text) {
  return !text.empty() && text.size() <= kNameLimit &&
         std::ranges::all_of(text, [](char c) { return c > ' ' && c <= '~'; });
}

// --- Rules of the paths --------------------------------------------------------------------------

// IsReservedPath, for the key of a path.
bool IsReservedKey(std::u16string_view key) {
  const std::vector<PathView> names = Components(key);
  if (!names.empty() && names.front() == u"log.txt") return true;
  return std::ranges::any_of(names, [](PathView name) { return name.ends_with(kTemporarySuffix); });
}

// A path that begins with a separator is safe by its components, but cannot be joined to a root.
bool IsDescribable(PathView path, std::u16string_view key) {
  try {
    return IsListablePath(path) && DividePath(path).root_directory.empty() && !IsReservedKey(key);
  } catch (const std::runtime_error&) {
    return false;  // A lone surrogate.
  }
}

// The keys of all files and of all directories above them.
class PathRules {
 public:
  void AddFile(const Path& path) {
    std::u16string key = PathCompareKey(path);
    if (!IsDescribable(path, key)) Refuse("a file cannot have the path " + Shown(path));
    if (!files_.insert(std::move(key)).second) {
      Refuse(InQuotes(path) + " occurs twice, but for case");
    }
    // From the inside out: where a directory is known, those above it are.
    for (Path directory = ParentPath(path); !directory.empty(); directory = ParentPath(directory)) {
      const std::string spelling = GenericUtf8Path(directory);
      const auto [known, added] = directories_.emplace(PathCompareKey(directory), spelling);
      // A directory has one spelling on disk, and the updater compares a stage's names with case.
      if (known->second != spelling) {
        Refuse(InQuotes(directory) + " is spelled \"" + known->second + "\" elsewhere");
      }
      if (!added) break;
    }
  }

  // Once all files are added.
  void CheckFilesAndDirectories() const {
    for (const std::u16string& key : files_) {
      if (directories_.contains(key)) Refuse(InQuotes(key) + " is a file and a directory");
    }
  }

  void AddRemoved(const Path& path) {
    const std::u16string key = PathCompareKey(path);
    if (!IsDescribable(path, key)) {
      Refuse("no file to be removed can have the path " + Shown(path));
    }
    if (files_.contains(key)) Refuse(InQuotes(path) + " is to be removed and is a file");
    if (directories_.contains(key)) {
      Refuse(InQuotes(path) + " is to be removed and is a directory");
    }
    if (!removed_.insert(key).second) Refuse(InQuotes(path) + " is to be removed twice");
  }

  [[nodiscard]] bool HasFile(const std::u16string& key) const { return files_.contains(key); }

 private:
  // A path that may be no path at all.
  static std::string Shown(const Path& path) {
    try {
      return InQuotes(path);
    } catch (const std::runtime_error&) {
      return "with a lone surrogate";
    }
  }

  std::set<std::u16string> files_;
  std::map<std::u16string, std::string> directories_;  // And the spelling of each.
  std::set<std::u16string> removed_;
};

void Validate(const ReleaseDescription& description) {
  Require(IsChannel(description.channel), "the channel is not 1 to 64 of a-z, 0-9 and -");
  Require(IsVersion(description.version), "the version is not 1 to 64 printable characters");
  Require(description.sequence >= 1 && description.sequence <= kLargestSequence,
          "the sequence is not from 1 to 2^53");
  Require(description.files.size() <= kDescriptionFileLimit, "it has too many files");
  PathRules rules;
  std::uint64_t total = 0;
  for (const SourceInventoryEntry& file : description.files) {
    rules.AddFile(file.path);
    if (!IsLowerHex64(std::string_view(file.sha256))) {
      Refuse("the digest of " + InQuotes(file.path) + " is not 64 lower-case digits");
    }
    // So that no sum of sizes overflows.
    Require(file.size <= kLargestTotal - total, "its files are too large");
    total += file.size;
  }
  rules.CheckFilesAndDirectories();
  Require(rules.HasFile(PathCompareKey(kApplicationKeyText)), "it lacks Tolvarine.exe");
  Require(description.removed.size() <= kDescriptionFileLimit, "it removes too many files");
  for (const Path& path : description.removed) rules.AddRemoved(path);
}

void Sort(ReleaseDescription& description) {
  KeyedRows<SourceInventoryEntry> files;
  for (const SourceInventoryEntry& file : description.files) files.Add(file, file.path, "");
  const std::u16string application = PathCompareKey(kApplicationKeyText);
  description.files = files.Sorted([&](const std::u16string& a, const std::u16string& b) {
    return ReleaseKeyBefore(a, b, application);
  });
  KeyedRows<Path> removed;
  for (const Path& path : description.removed) removed.Add(path, path, "");
  description.removed = removed.Sorted(std::less<>());
}

// --- Members -------------------------------------------------------------------------------------

const Json& Member(const Json& object, const char* name, Json::value_t type) {
  Require(object.is_object() && object.contains(name), std::string(name) + " is missing");
  const Json& value = object.at(name);
  Require(value.type() == type, std::string(name) + " is not of its type");
  return value;
}

std::string TextMember(const Json& object, const char* name) {
  return Member(object, name, Json::value_t::string).get<std::string>();
}

std::uint64_t NumberMember(const Json& object, const char* name) {
  return Member(object, name, Json::value_t::number_unsigned).get<std::uint64_t>();
}

SourceInventoryEntry ReadFile(const Json& row) {
  Require(row.is_object() && row.size() == 3, "a file does not have exactly path, size and sha256");
  return {PathFromUtf8(TextMember(row, "path")), NumberMember(row, "size"),
          TextMember(row, "sha256")};
}

ReleaseDescription Read(const Json& payload) {
  constexpr std::size_t kMembers = 7;
  Require(payload.is_object(), "it is not an object");
  Require(NumberMember(payload, "format") == kDescriptionFormat, "its format is not 1");
  Require(TextMember(payload, "product") == kProduct, "it is of another product");
  Require(payload.size() == kMembers, "it has an unknown member");
  ReleaseDescription description{.channel = TextMember(payload, "channel"),
                                 .version = TextMember(payload, "version"),
                                 .sequence = NumberMember(payload, "sequence")};
  for (const Json& row : Member(payload, "files", Json::value_t::array)) {
    description.files.push_back(ReadFile(row));
  }
  for (const Json& row : Member(payload, "removed", Json::value_t::array)) {
    Require(row.is_string(), "a path to be removed is not a text");
    description.removed.push_back(PathFromUtf8(row.get<std::string>()));
  }
  return description;
}

}  // namespace

bool IsReservedPath(PathView path) { return IsReservedKey(PathCompareKey(path)); }

std::string SerializeDescription(const ReleaseDescription& description) {
  ReleaseDescription sorted = description;
  Validate(sorted);
  Sort(sorted);
  Json files = Json::array();
  for (const SourceInventoryEntry& file : sorted.files) {
    files.push_back(
        {{"path", GenericUtf8Path(file.path)}, {"size", file.size}, {"sha256", file.sha256}});
  }
  Json removed = Json::array();
  for (const Path& path : sorted.removed) removed.push_back(GenericUtf8Path(path));
  const Json payload = {{"format", kDescriptionFormat}, {"product", kProduct},
                        {"channel", sorted.channel},    {"version", sorted.version},
                        {"sequence", sorted.sequence},  {"files", std::move(files)},
                        {"removed", std::move(removed)}};
  std::string text = payload.dump();
  Require(text.size() <= kDescriptionByteLimit, "its text is too large");
  return text;
}

ReleaseDescription ParseDescription(std::string_view payload) {
  Require(payload.size() <= kDescriptionByteLimit, "its text is too large");
  Json json;
  try {
    json = ParseStrictJson(payload, kJsonLimits);
  } catch (const std::runtime_error& failure) {
    Refuse(failure.what());
  }
  ReleaseDescription description = Read(json);
  Validate(description);
  Sort(description);
  return description;
}

}  // namespace tolvarine::updater::application
