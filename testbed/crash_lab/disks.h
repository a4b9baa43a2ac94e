// Disks: what a power cut can leave of a state, as numbered losses, and the content of a disk, path
// by path.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "simulated_windows/volume.h"

namespace tolvarine::updater::crash_lab {

using Disks = std::deque<simulated::Volume>;

// What one power cut takes and leaves, volume by volume.
struct Loss {
  struct OfVolume {
    std::size_t changes = 0;  // How many of the unforced changes got through.
    std::map<simulated::NodeId, simulated::ContentSurvival> survival;
  };
  std::vector<OfVolume> volumes;
};

// Every loss that the model admits for a state of the disks, numbered from 0. Content of up to four
// sectors survives in every subset; longer content in every prefix and in a few patterns.
class LossSpace {
 public:
  explicit LossSpace(const Disks& disks);

  [[nodiscard]] std::uint64_t count() const { return count_; }
  [[nodiscard]] Loss At(std::uint64_t number) const;

 private:
  struct UnflushedFile {
    simulated::NodeId id = 0;
    std::vector<simulated::ContentSurvival> variants;
  };
  struct OfVolume {
    std::uint64_t prefixes = 1;
    std::vector<UnflushedFile> files;
  };

  std::vector<OfVolume> volumes_;
  std::uint64_t count_ = 1;
};

// The disks after that cut, with everything on them durable.
[[nodiscard]] Disks AfterCut(const Disks& disks, const Loss& loss);

// The content of a disk. Keys are whole paths in the folded form (`C:\STATE\…`), directories end in
// `\`; a directory has no content.
struct ImageEntry {
  std::uint32_t attributes = 0;
  simulated::Bytes content;
};

// Orders paths byte by byte. Paths with the same beginning are neighbours, which is all that is
// asked of the order, and memcmp skips long common beginnings fast.
struct PathBefore {
  bool operator()(std::u16string_view a, std::u16string_view b) const {
    const std::size_t common = std::min(a.size(), b.size());
    const int order = std::memcmp(a.data(), b.data(), common * sizeof(char16_t));
    return order < 0 || (order == 0 && a.size() < b.size());
  }
};

using Image = std::map<std::u16string, ImageEntry, PathBefore>;

[[nodiscard]] Image ImageOf(const Disks& disks);

// Equal images have equal fingerprints; different ones practically never do.
[[nodiscard]] std::uint64_t Fingerprint(const Image& image);

// The image as text, a line for each path, contents shortened.
[[nodiscard]] std::string Describe(const Image& image);

}  // namespace tolvarine::updater::crash_lab
