#include "release/describe.h"

#include <algorithm>
#include <map>
#include <set>
#include <stdexcept>

#include "lists/list_text.h"
#include "lists/release_path.h"
#include "reasons/sentences.h"
#include "release/list_size.h"
#include "release/release_tree.h"
#include "release/signed_release.h"

namespace tolvarine::updater::application {
namespace {

// The files of a description and the directories above them, by the keys of their paths.
struct Names {
  std::map<std::u16string, const SourceInventoryEntry*> files{};
  std::set<std::u16string> directories{};
};

Names NamesOf(const ReleaseDescription& description) {
  Names names;
  for (const SourceInventoryEntry& file : description.files) {
    std::u16string key = PathCompareKey(file.path);
    for (std::size_t at = key.find(u'/'); at != std::u16string::npos; at = key.find(u'/', at + 1)) {
      names.directories.insert(key.substr(0, at));
    }
    names.files.emplace(std::move(key), &file);
  }
  return names;
}

// Every file that an earlier release has, or had removed, and whose name this one leaves free.
std::vector<Path> RemovedSince(const std::vector<ReleaseDescription>& earlier, const Names& now) {
  std::map<std::u16string, Path> removed;
  const auto add = [&](const Path& path) {
    std::u16string key = PathCompareKey(path);
    const bool used = now.files.contains(key) || now.directories.contains(key);
    if (!used) removed.emplace(std::move(key), path);
  };
  for (const ReleaseDescription& release : earlier) {
    for (const SourceInventoryEntry& file : release.files) add(file.path);
    for (const Path& path : release.removed) add(path);
  }
  std::vector<Path> paths;
  paths.reserve(removed.size());
  for (auto& [key, path] : removed) paths.push_back(std::move(path));
  return paths;
}

// True where a file has the name of a directory.
bool AnyIsDirectory(const Names& of_files, const Names& of_directories) {
  return std::ranges::any_of(of_files.files, [&](const auto& file) {
    return of_directories.directories.contains(file.first);
  });
}

ListMargin MarginFrom(const ReleaseDescription& earlier, const Names& now) {
  const Names before = NamesOf(earlier);
  const std::u16string application = PathCompareKey(kApplicationKeyText);
  SourceInventory changed;
  for (const auto& [key, file] : now.files) {
    const auto old = before.files.find(key);
    const bool same = old != before.files.end() && old->second->size == file->size &&
                      old->second->sha256 == file->sha256;
    if (!same || key == application) changed.push_back(*file);
  }
  ManagedDeletionList deletions;
  for (const auto& [key, file] : before.files) {
    if (!now.files.contains(key)) deletions.push_back(file->path);
  }
  return {.earlier_version = earlier.version,
          .files = changed.size(),
          .inventory_bytes = ListSizeOf(changed),
          .deletions = deletions.size(),
          .deletion_bytes = ListSizeOf(deletions),
          .kind_changes = AnyIsDirectory(before, now) || AnyIsDirectory(now, before)};
}

std::vector<std::string> CheckEarlier(const DescribeRequest& request) {
  std::vector<std::string> problems;
  for (const ReleaseDescription& earlier : request.earlier) {
    if (earlier.channel != request.channel) {
      problems.push_back("The earlier release " + earlier.version + " is of the channel \"" +
                         earlier.channel + "\".");
    }
    if (earlier.sequence >= request.sequence) {
      problems.push_back("The earlier release " + earlier.version + " has the sequence " +
                         std::to_string(earlier.sequence) + ". A new release needs a greater one.");
    }
  }
  return problems;
}

}  // namespace

bool ListMargin::Fits() const {
  return !kind_changes && files <= kListRowLimit && inventory_bytes <= kListTextByteLimit &&
         deletions <= kListRowLimit && deletion_bytes <= kListTextByteLimit;
}

DescribedRelease DescribeRelease(const DescribeRequest& request) {
  ReleaseTree tree = ReadReleaseTree(request.release);
  DescribedRelease described{.problems = std::move(tree.problems)};
  std::ranges::move(CheckEarlier(request), std::back_inserter(described.problems));
  if (!described.problems.empty()) return described;
  ReleaseDescription description{.channel = request.channel,
                                 .version = request.version,
                                 .sequence = request.sequence,
                                 .files = std::move(tree.files)};
  const Names now = NamesOf(description);
  description.removed = RemovedSince(request.earlier, now);
  try {
    described.payload = SerializeDescription(description);
  } catch (const std::runtime_error& failure) {
    described.problems.emplace_back(failure.what());
    return described;
  }
  for (const ReleaseDescription& earlier : request.earlier) {
    described.margins.push_back(MarginFrom(earlier, now));
  }
  return described;
}

std::string SealRelease(std::string_view payload, std::string_view der_signature,
                        const PublicKey& key) {
  static_cast<void>(ParseDescription(payload));
  const std::string signature = RawSignatureFromDer(der_signature);
  if (!VerifySignature(key, PreAuthenticationEncoding(kPayloadType, payload), signature)) {
    throw std::runtime_error(
        "The signature is not one of this payload's bytes to be signed by this key.");
  }
  return FormatEnvelope(payload, signature, KeyIdOf(key));
}

}  // namespace tolvarine::updater::application
