#include "simulated_windows/path_resolution.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/disk_set.h"

namespace tolvarine::updater::simulated {
namespace {

constexpr std::u16string_view kExtendedPrefix = u"\\\\?\\";
constexpr std::u16string_view kObjectPrefix = u"\\??\\";  // What junctions hold.
constexpr std::u16string_view kUncPrefix = u"UNC\\";
constexpr std::u16string_view kDeviceRoot = u"GLOBALROOT";
constexpr std::size_t kNameLimit = 255;
constexpr int kLinkLimit = 63;

bool IsSeparator(char16_t unit) { return unit == u'\\' || unit == u'/'; }

bool IsDrive(std::u16string_view text) {
  return text.size() >= 2 && text[1] == u':' &&
         ((text[0] >= u'A' && text[0] <= u'Z') || (text[0] >= u'a' && text[0] <= u'z'));
}

using Names = std::vector<std::u16string>;

// A path as its volume and the names below that volume's root.
struct Route {
  std::uint32_t code = 0;
  std::size_t volume = 0;
  Names names{};
  bool trailing_separator = false;
};

Names Split(std::u16string_view text) {
  Names names;
  std::size_t start = 0;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    if (i < text.size() && !IsSeparator(text[i])) continue;
    if (i > start) names.emplace_back(text.substr(start, i - start));
    start = i + 1;
  }
  return names;
}

// Removes "." and "..", and the full stops and blanks at the end, as Windows does for a path
// without the extended prefix.
Names Collapsed(const Names& names) {
  Names collapsed;
  for (std::u16string name : names) {
    if (name == u".") continue;
    if (name == u"..") {
      if (!collapsed.empty()) collapsed.pop_back();
      continue;
    }
    collapsed.push_back(std::move(name));
  }
  if (!collapsed.empty()) {
    std::u16string& last = collapsed.back();
    const std::size_t end = last.find_last_not_of(u". ");
    last.resize(end == std::u16string::npos ? 0 : end + 1);
    if (last.empty()) collapsed.pop_back();
  }
  return collapsed;
}

template <typename Matches>
std::optional<std::size_t> FindVolume(const DiskSet& disks, Matches matches) {
  const auto& volumes = disks.volumes;
  const auto found = std::ranges::find_if(volumes, matches);
  if (found == volumes.end()) return std::nullopt;
  return static_cast<std::size_t>(found - volumes.begin());
}

Route ByDrive(const DiskSet& disks, std::u16string_view text) {
  const std::u16string drive = FoldName(text.substr(0, 1));
  const auto volume =
      FindVolume(disks, [&](const Volume& candidate) { return candidate.drive == drive[0]; });
  if (!volume) return {.code = platform::kErrorPathNotFound};
  return {.volume = *volume, .names = Split(text.substr(2))};
}

// `text` begins with the server's name.
Route ByServer(const DiskSet& disks, std::u16string_view text) {
  Names names = Split(text);
  if (names.size() < 2) return {.code = platform::kErrorBadPathname};
  const std::u16string share = FoldName(u"\\\\" + names[0] + u"\\" + names[1]);
  const auto volume = FindVolume(
      disks, [&](const Volume& candidate) { return FoldName(candidate.share) == share; });
  if (!volume) return {.code = platform::kErrorBadNetPath};
  names.erase(names.begin(), names.begin() + 2);
  return {.volume = *volume, .names = std::move(names)};
}

// `text` begins with a device's name, `\Device\…`.
Route ByDevice(const DiskSet& disks, std::u16string_view text) {
  Names names = Split(text);
  if (names.size() < 2) return {.code = platform::kErrorPathNotFound};
  const std::u16string device = FoldName(u"\\" + names[0] + u"\\" + names[1]);
  const auto volume = FindVolume(
      disks, [&](const Volume& candidate) { return FoldName(candidate.device) == device; });
  if (!volume) return {.code = platform::kErrorPathNotFound};
  names.erase(names.begin(), names.begin() + 2);
  return {.volume = *volume, .names = std::move(names)};
}

// `text` is what follows the extended prefix, or the prefix that junctions hold.
Route ByExtended(const DiskSet& disks, std::u16string_view text) {
  if (IsDrive(text)) return ByDrive(disks, text);
  if (FoldName(text.substr(0, kUncPrefix.size())) == kUncPrefix) {
    return ByServer(disks, text.substr(kUncPrefix.size()));
  }
  if (text.starts_with(kDeviceRoot)) return ByDevice(disks, text.substr(kDeviceRoot.size()));
  if (text.starts_with(u"\\Device\\")) return ByDevice(disks, text);
  return {.code = platform::kErrorPathNotFound};
}

// The full form of a path without the extended prefix.
std::u16string FullPath(const DiskSet& disks, std::u16string_view path) {
  const std::u16string& current = disks.current_directory;
  if (IsDrive(path) && path.size() > 2 && IsSeparator(path[2])) return std::u16string(path);
  if (path.size() >= 2 && IsSeparator(path[0]) && IsSeparator(path[1])) {
    return std::u16string(path);
  }
  if (!path.empty() && IsSeparator(path[0])) return current.substr(0, 2) + std::u16string(path);
  const std::u16string_view rest = IsDrive(path) ? path.substr(2) : path;
  const bool bare = current.ends_with(u'\\');
  return current + (bare ? u"" : u"\\") + std::u16string(rest);
}

std::uint32_t CheckNames(const Names& names) {
  for (const std::u16string& name : names) {
    if (const std::uint32_t code = CheckName(name); code != 0) return code;
  }
  return 0;
}

Route RouteTo(const DiskSet& disks, std::u16string_view path) {
  if (path.empty()) return {.code = platform::kErrorPathNotFound};
  Route route;
  if (path.starts_with(kExtendedPrefix) || path.starts_with(kObjectPrefix)) {
    const std::u16string_view verbatim = path.substr(kExtendedPrefix.size());
    route = ByExtended(disks, verbatim);
    // Windows does not normalize such a path, so that these would be parts of a name.
    const bool slash = verbatim.find(u'/') != std::u16string_view::npos;
    if (slash || verbatim.find(u"\\\\") != std::u16string_view::npos) {
      return {.code = platform::kErrorInvalidName};
    }
  } else if (LimitedLength(disks, path) > kMaxPath) {
    return {.code = platform::kErrorPathNotFound};
  } else {
    const std::u16string full = FullPath(disks, path);
    route =
        IsDrive(full) ? ByDrive(disks, full) : ByServer(disks, std::u16string_view(full).substr(2));
    route.names = Collapsed(route.names);
  }
  if (route.code == 0) route.code = CheckNames(route.names);
  route.trailing_separator = IsSeparator(path.back());
  return route;
}

// The route of a path that continues through a link: the link's target, then the names behind the
// link. `link` is the place of the link's name in the route.
Route Redirect(const DiskSet& disks, const Route& route, std::size_t link, const Node& node) {
  const std::u16string& to = node.reparse_target;
  const bool full = IsDrive(to) || to.starts_with(u"\\\\") || to.starts_with(kObjectPrefix);
  Route redirected;
  if (full) {
    redirected = RouteTo(disks, to);
    if (redirected.code != 0) return redirected;
  } else {
    redirected.volume = route.volume;
    // The target is relative to the directory that the link lies in, or to the volume's root.
    if (!IsSeparator(to.front())) {
      redirected.names.assign(route.names.begin(),
                              route.names.begin() + static_cast<std::ptrdiff_t>(link));
    }
    std::ranges::move(Split(to), std::back_inserter(redirected.names));
    redirected.names = Collapsed(redirected.names);
  }
  redirected.names.insert(redirected.names.end(),
                          route.names.begin() + static_cast<std::ptrdiff_t>(link) + 1,
                          route.names.end());
  redirected.trailing_separator = route.trailing_separator;
  return redirected;
}

// Windows itself follows these two; other tags belong to drivers that are not installed.
bool IsLink(const Node& node) {
  return node.reparse_tag == platform::kIoReparseTagSymlink ||
         node.reparse_tag == platform::kIoReparseTagMountPoint;
}

// One walk along a route, from the volume's root to the end or to the first link to be followed.
struct Walk {
  Resolved result{};
  std::optional<Route> redirected{};  // At a link: the route to walk instead.
};

Walk WalkRoute(const DiskSet& disks, const Route& route, LastLink last_link) {
  const Volume& volume = disks.volumes[route.volume];
  Walk walk;
  walk.result.trailing_separator = route.trailing_separator;
  NodeId current = kRootNode;
  for (std::size_t i = 0; i < route.names.size(); ++i) {
    const bool last = i + 1 == route.names.size();
    const Node& directory = volume.node(current);
    if (!directory.IsDirectory()) return {.result = {.code = platform::kErrorPathNotFound}};
    const DirectoryEntry* entry = volume.Find(current, route.names[i]);
    walk.result.directory = {route.volume, current};
    walk.result.spelling = route.names[i];
    if (entry == nullptr) {
      walk.result.code = last ? platform::kErrorFileNotFound : platform::kErrorPathNotFound;
      return walk;
    }
    const Node& node = volume.node(entry->node);
    const bool keep = last && last_link == LastLink::kKeep;
    if (node.IsReparsePoint() && !keep) {
      if (!IsLink(node)) return {.result = {.code = kErrorCantAccessFile}};
      walk.redirected = Redirect(disks, route, i, node);
      return walk;
    }
    current = entry->node;
  }
  walk.result.node = {route.volume, current};
  const bool file = !volume.node(current).IsDirectory();
  if (file && route.trailing_separator) walk.result.code = platform::kErrorInvalidName;
  return walk;
}

}  // namespace

Resolved Resolve(const DiskSet& disks, std::u16string_view path, LastLink last) {
  // Each link starts a new walk, since its target may contain links or lie on another volume. The
  // limit ends a circle of links, as on Windows.
  Route route = RouteTo(disks, path);
  for (int links = 0; links <= kLinkLimit; ++links) {
    if (route.code != 0) return {.code = route.code};
    Walk walk = WalkRoute(disks, route, last);
    if (!walk.redirected) return walk.result;
    route = *std::move(walk.redirected);
  }
  return {.code = kErrorCantResolveFilename};
}

std::uint32_t CheckName(std::u16string_view name) {
  constexpr std::u16string_view kForbidden = u"<>:\"|?*/\\";
  const bool control = std::ranges::any_of(name, [](char16_t unit) { return unit < 0x20; });
  const bool dots = name == u"." || name == u"..";
  const bool sound = !name.empty() && name.size() <= kNameLimit && !control && !dots &&
                     name.find_first_of(kForbidden) == std::u16string_view::npos;
  return sound ? 0 : platform::kErrorInvalidName;
}

std::size_t LimitedLength(const DiskSet& disks, std::u16string_view path) {
  return path.starts_with(kExtendedPrefix) ? 0 : FullPath(disks, path).size();
}

}  // namespace tolvarine::updater::simulated
