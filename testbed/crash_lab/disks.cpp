#include "crash_lab/disks.h"

#include <algorithm>
#include <functional>

#include "crash_lab/report.h"
#include "text/decimal.h"

namespace tolvarine::updater::crash_lab {
namespace {

using simulated::ContentSurvival;
using simulated::kSectorSize;
using simulated::NodeId;
using simulated::Volume;

constexpr std::size_t kExhaustiveSectors = 4;
constexpr std::size_t kShownContent = 48;

// Bit i of `mask` keeps sector i.
ContentSurvival SubsetOf(std::size_t sectors, std::uint64_t mask) {
  ContentSurvival survival;
  for (std::size_t i = 0; i < sectors; ++i) survival.keep.push_back((mask >> i & 1) != 0);
  return survival;
}

std::vector<ContentSurvival> VariantsOf(std::size_t size) {
  const std::size_t sectors = (size + kSectorSize - 1) / kSectorSize;
  std::vector<ContentSurvival> variants;
  if (sectors <= kExhaustiveSectors) {
    const std::uint64_t subsets = std::uint64_t{1} << sectors;
    for (std::uint64_t mask = 0; mask < subsets; ++mask) {
      variants.push_back(SubsetOf(sectors, mask));
    }
    return variants;
  }
  for (std::size_t kept = 0; kept <= sectors; ++kept) {
    ContentSurvival prefix;
    for (std::size_t i = 0; i < sectors; ++i) prefix.keep.push_back(i < kept);
    variants.push_back(std::move(prefix));
  }
  variants.push_back({{true, false}});
  variants.push_back({{false, true}});
  variants.push_back({{false, true, true}});
  return variants;
}

void Collect(const Volume& volume, NodeId directory, const std::u16string& prefix, Image& image) {
  for (const auto& [folded, entry] : volume.node(directory).entries) {
    const simulated::Node& node = volume.node(entry.node);
    const std::u16string path = prefix + folded;
    if (node.IsDirectory()) {
      image.emplace_hint(image.end(), path + u"\\", ImageEntry{node.attributes, nullptr});
      Collect(volume, entry.node, path + u"\\", image);
    } else {
      image.emplace_hint(image.end(), path, ImageEntry{node.attributes, node.content});
    }
  }
}

std::string Shortened(const std::string& content) {
  std::string shown;
  for (const char c : content.substr(0, kShownContent)) {
    shown.push_back(c >= ' ' && c <= '~' ? c : '.');
  }
  return content.size() > kShownContent ? shown + "..." : shown;
}

}  // namespace

LossSpace::LossSpace(const Disks& disks) {
  for (const Volume& volume : disks) {
    OfVolume space;
    space.prefixes = volume.unforced().size() + 1;
    count_ *= space.prefixes;
    for (const NodeId id : volume.UnflushedFiles()) {
      space.files.push_back({id, VariantsOf(volume.node(id).Size())});
      count_ *= space.files.back().variants.size();
    }
    volumes_.push_back(std::move(space));
  }
}

Loss LossSpace::At(std::uint64_t number) const {
  Loss loss;
  const auto take = [&](std::uint64_t choices) {
    const std::uint64_t choice = number % choices;
    number /= choices;
    return choice;
  };
  for (const OfVolume& space : volumes_) {
    Loss::OfVolume& chosen = loss.volumes.emplace_back();
    chosen.changes = take(space.prefixes);
    for (const UnflushedFile& file : space.files) {
      chosen.survival[file.id] = file.variants[take(file.variants.size())];
    }
  }
  return loss;
}

Disks AfterCut(const Disks& disks, const Loss& loss) {
  Disks left = disks;
  for (std::size_t i = 0; i < left.size(); ++i) {
    left[i].CutPower(loss.volumes[i].changes, loss.volumes[i].survival);
  }
  return left;
}

Image ImageOf(const Disks& disks) {
  Image image;
  for (const Volume& volume : disks) {
    Collect(volume, simulated::kRootNode, std::u16string(1, volume.drive) + u":\\", image);
  }
  return image;
}

std::uint64_t Fingerprint(const Image& image) {
  std::uint64_t hash = 0;
  // An odd factor loses nothing of what the hash says so far.
  const auto add = [&](std::uint64_t value) { hash = (hash ^ value) * 0x9E3779B97F4A7C15U; };
  for (const auto& [path, entry] : image) {
    add(std::hash<std::u16string>{}(path));
    add(entry.attributes);
    add(entry.content ? std::hash<std::string>{}(*entry.content) : 0);
  }
  return hash;
}

std::string Describe(const Image& image) {
  std::string text;
  for (const auto& [path, entry] : image) {
    text.append(Shown(path));
    if (entry.content) {
      text.append("  ");
      AppendDecimal(text, entry.content->size());
      text.append(" bytes  ").append(Shortened(*entry.content));
    }
    text.push_back('\n');
  }
  return text;
}

}  // namespace tolvarine::updater::crash_lab
