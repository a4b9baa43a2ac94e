#include "release/describe.h"

#include <algorithm>
#include <map>
#include <stdexcept>

#include "lists/list_text.h"
#include "lists/release_path.h"
#include "release/list_size.h"
#include "release/release_tree.h"
#include "release/signed_release.h"
#include "update/sentences.h"

namespace tolvarine::updater::application {
namespace {

using Rows = std::map<std::u16string, const SourceInventoryEntry*>;  // By key.

Rows RowsOf(const ReleaseDescription& description) {
  Rows rows;
  for (const SourceInventoryEntry& file : description.files) {
    rows.emplace(PathCompareKey(file.path), &file);
  }
  return rows;
}

// Every file that an earlier release has, or had removed, and this one lacks.
std::vector<Path> RemovedSince(const std::vector<ReleaseDescription>& earlier, const Rows& rows) {
  std::map<std::u16string, Path> removed;
  const auto add = [&](const Path& path) {
    std::u16string key = PathCompareKey(path);
    if (!rows.contains(key)) removed.emplace(std::move(key), path);
  };
  for (const ReleaseDescription& release : earlier) {
    for (const SourceInventoryEntry& file : release.files) add(file.path);
    for (const Path& path : release.removed) add(path);
  }
  std::vector<Path> paths;
  for (auto& [key, path] : removed) paths.push_back(std::move(path));
  return paths;
}

ListMargin MarginFrom(const ReleaseDescription& earlier, const ReleaseDescription& release) {
  const Rows before = RowsOf(earlier);
  const Rows now = RowsOf(release);
  SourceInventory changed;
  for (const auto& [key, file] : now) {
    const auto old = before.find(key);
    const bool same = old != before.end() && old->second->size == file->size &&
                      old->second->sha256 == file->sha256;
    if (!same || key == PathCompareKey(kApplicationKeyText)) changed.push_back(*file);
  }
  ManagedDeletionList deletions;
  for (const auto& [key, file] : before) {
    if (!now.contains(key)) deletions.push_back(file->path);
  }
  return {earlier.version, changed.size(), ListSizeOf(changed), deletions.size(),
          ListSizeOf(deletions)};
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
  return files <= kListRowLimit && inventory_bytes <= kListTextByteLimit &&
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
  description.removed = RemovedSince(request.earlier, RowsOf(description));
  try {
    described.payload = SerializeDescription(description);
  } catch (const std::runtime_error& failure) {
    described.problems.emplace_back(failure.what());
    return described;
  }
  for (const ReleaseDescription& earlier : request.earlier) {
    described.margins.push_back(MarginFrom(earlier, description));
  }
  return described;
}

std::string SealRelease(std::string_view payload, std::string_view der_signature,
                        const PublicKey& key) {
  static_cast<void>(ParseDescription(payload));
  const std::string signature = RawSignatureFromDer(der_signature);
  if (!VerifySignature(key, PreAuthenticationEncoding(kPayloadType, payload), signature)) {
    throw std::runtime_error(
        "The signature is not one of this payload's bytes to be signed by this key");
  }
  return FormatEnvelope(payload, signature, KeyIdOf(key));
}

}  // namespace tolvarine::updater::application
