// The calls about volumes, and the identity of a file.

#include "system/volumes.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/error_codes.h"
#include "simulated_windows/call_failure.h"
#include "simulated_windows/file_system.h"
#include "simulated_windows/path_resolution.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::DiskSet;
using simulated::FailCall;
using simulated::Fault;
using simulated::LastLink;
using simulated::OpenFile;
using simulated::Resolve;
using simulated::Resolved;
using simulated::Volume;

namespace {

constexpr std::u16string_view kExtendedPrefix = u"\\\\?\\";

// The root, in the form that the path has: by drive or share, extended or not.
std::u16string RootOf(const Volume& volume, std::u16string_view path) {
  const bool extended = path.starts_with(kExtendedPrefix);
  const std::u16string prefix(extended ? kExtendedPrefix : u"");
  if (volume.drive != 0) return prefix + volume.drive + u":\\";
  if (!volume.share.empty()) {
    return (extended ? prefix + u"UNC" + volume.share.substr(1) : volume.share) + u"\\";
  }
  return prefix + u"GLOBALROOT" + volume.device + u"\\";
}

// The volume of the longest part of a path that leads somewhere; null where none does.
const Volume* VolumeOfPath(const DiskSet& disks, std::u16string_view path) {
  for (;;) {
    const Resolved found = Resolve(disks, path, LastLink::kFollow);
    if (found.code == 0) return &disks.volumes[found.node.volume];
    if (found.code == kErrorFileNotFound) return &disks.volumes[found.directory.volume];
    const std::size_t end = path.find_last_not_of(u"\\/");
    const std::size_t separator =
        end == std::u16string_view::npos ? end : path.find_last_of(u"\\/", end);
    if (separator == std::u16string_view::npos) return nullptr;
    path = path.substr(0, separator + 1 == path.size() ? separator : separator + 1);
  }
}

bool CopyText(std::u16string_view text, char16_t* buffer, std::uint32_t size) {
  if (text.size() >= size) return FailCall(simulated::kErrorFilenameExcedRange, false);
  *std::ranges::copy(text, buffer).out = u'\0';
  return true;
}

}  // namespace

bool GetDiskFreeSpaceExW(const char16_t* directory, std::uint64_t* free_to_caller) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::GetDiskFreeSpaceExW, directory)) {
    return FailCall(fault->code, false);
  }
  const Resolved found = Resolve(computer.disks, directory, LastLink::kFollow);
  const bool missing = found.code == kErrorFileNotFound;
  if (found.code != 0) return FailCall(missing ? kErrorPathNotFound : found.code, false);
  if (!computer.files().NodeOf(found.node).IsDirectory()) return FailCall(kErrorDirectory, false);
  *free_to_caller = computer.files().VolumeOf(found.node).FreeBytes();
  return true;
}

bool GetVolumePathNameW(const char16_t* path, char16_t* buffer, std::uint32_t size) {
  const Computer& computer = Computer::Current();
  if (const Fault* fault = Computer::Current().calls.Enter(Call::GetVolumePathNameW, path)) {
    return FailCall(fault->code, false);
  }
  const Volume* const volume = VolumeOfPath(computer.disks, path);
  if (volume == nullptr) return FailCall(kErrorFileNotFound, false);
  return CopyText(RootOf(*volume, path), buffer, size);
}

bool GetVolumeInformationW(const char16_t* root, char16_t* file_system, std::uint32_t size,
                           std::uint32_t* serial_number) {
  Computer& computer = Computer::Current();
  if (const Fault* fault = computer.calls.Enter(Call::GetVolumeInformationW, root)) {
    return FailCall(fault->code, false);
  }
  const Resolved found = Resolve(computer.disks, root, LastLink::kFollow);
  if (!std::u16string_view(root).ends_with(u'\\')) return FailCall(kErrorInvalidName, false);
  if (found.code != 0) return FailCall(found.code, false);
  if (found.node.id != simulated::kRootNode) return FailCall(simulated::kErrorDirNotRoot, false);
  const Volume& volume = computer.files().VolumeOf(found.node);
  if (serial_number != nullptr) *serial_number = volume.serial_number;
  return file_system == nullptr || CopyText(volume.file_system, file_system, size);
}

bool GetFileInformationByHandle(Handle handle, FileIdentity* identity) {
  Computer& computer = Computer::Current();
  const OpenFile* const opened = computer.files().Find(handle);
  const std::u16string_view path = opened == nullptr ? std::u16string_view() : opened->path;
  if (const Fault* fault = computer.calls.Enter(Call::GetFileInformationByHandle, path)) {
    return FailCall(fault->code, false);
  }
  const OpenFile* const file = computer.files().Find(handle);
  if (file == nullptr) return FailCall(simulated::kErrorInvalidHandle, false);
  *identity = {.volume_serial_number = computer.files().VolumeOf(file->node).serial_number,
               .file_index = file->node.id};
  return true;
}

}  // namespace tolvarine::updater::platform
