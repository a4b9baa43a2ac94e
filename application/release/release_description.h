// The description of a release: all its files with sizes and digests, and which earlier files are
// gone. It is the payload that a release's maker signs (signed_release.h).
//
// It is a JSON object with exactly these members:
//
//     {"format": 1, "product": "Tolvarine", "channel": "stable", "version": "2.1.0",
//      "sequence": 17,
//      "files": [{"path": "lib/core.dll", "size": 5, "sha256": "2cf2…9824"}, …],
//      "removed": ["plugins/old.dll", …]}
//
// `sequence` is a whole number from 1 that grows with every release of a channel. Paths are UTF-8
// with `/` as separator.

#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "lists/source_inventory.h"
#include "text/path_algebra.h"

namespace tolvarine::updater::application {

inline constexpr std::uint64_t kDescriptionFormat = 1;
inline constexpr std::string_view kProduct = "Tolvarine";
// Of the payload's text. A larger one is refused before it is parsed.
inline constexpr std::size_t kDescriptionByteLimit = std::size_t{16} << 20;
inline constexpr std::size_t kDescriptionFileLimit = 50000;

// A description, or a signed one, that is not sound; the text is a sentence that says why.
class UnsoundRelease : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ReleaseDescription {
  std::string channel;          // 1 to 64 of a-z, 0-9 and "-".
  std::string version;          // 1 to 64 characters of printable ASCII, for people.
  std::uint64_t sequence = 0;   // 1 to 2^53.
  SourceInventory files{};      // In ascending order of their keys, Tolvarine.exe last.
  std::vector<Path> removed{};  // Files of earlier releases that this one lacks, in key order.
};

// True for a path that the updater cannot install: its own log, "log.txt" at the top level,
// anything below that name, and any name that ends as the updater's temporaries do.
[[nodiscard]] bool IsReservedPath(PathView path);

// The payload. The same description gives the same bytes. Throws what ParseDescription would
// refuse.
[[nodiscard]] std::string SerializeDescription(const ReleaseDescription& description);

// Throws UnsoundRelease, with a sentence that names the member or path, for anything that is not a
// description as above: another format or product, missing, unknown or duplicate members, a path
// that the updater's lists refuse or that is reserved, two paths that differ in case alone, two
// spellings of one directory, a file that is also a directory of another, a digest that is not 64
// lower-case digits, sizes of more than 2^53 bytes together, no Tolvarine.exe, a path in `removed`
// that is also a file or a directory, more than kDescriptionFileLimit files.
[[nodiscard]] ReleaseDescription ParseDescription(std::string_view payload);

}  // namespace tolvarine::updater::application
