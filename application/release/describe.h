// The maker's side: writing the description of a release directory, in two steps around the
// signature, which is made elsewhere.

#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "release/public_key.h"
#include "release/release_description.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

struct DescribeRequest {
  Path release;  // The directory of all files of the release.
  std::string channel;
  std::string version;
  std::uint64_t sequence = 0;
  std::vector<ReleaseDescription> earlier{};  // Of the same channel, in any order.
};

// How much of the updater's limits an update from one earlier release would take, were all its
// files as described. Rows and bytes are those of the lists (lists/list_text.h).
struct ListMargin {
  std::string earlier_version;
  std::size_t files = 0;  // Staged: those that differ, and Tolvarine.exe.
  std::size_t inventory_bytes = 0;
  std::size_t deletions = 0;
  std::size_t deletion_bytes = 0;
  // A file has become a directory or the other way round, which no update can do.
  bool kind_changes = false;

  [[nodiscard]] bool Fits() const;
};

struct DescribedRelease {
  std::vector<std::string> problems;  // Sentences; the rest counts only without any.
  std::string payload{};
  std::vector<ListMargin> margins{};  // One for each of `earlier`, in its order.
};

// Checks and hashes every file of the directory, which must hold the release and nothing else.
// `removed` becomes every file that an earlier release has, or had removed, and whose name this one
// uses neither for a file nor for a directory. An
// update that does not fit the lists is no problem of the release, but of the margin. Changes
// nothing. Throws what reading the files throws.
[[nodiscard]] DescribedRelease DescribeRelease(const DescribeRequest& request);

// The second step: the envelope of a payload and its signature in DER. Throws std::runtime_error
// for a payload that ParseDescription refuses and for a signature that does not verify with `key`.
[[nodiscard]] std::string SealRelease(std::string_view payload, std::string_view der_signature,
                                      const PublicKey& key);

}  // namespace tolvarine::updater::application
