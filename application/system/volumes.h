// Volumes, and the identity of files.

#pragma once

#include <cstdint>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

// The bytes that the caller can still write on the volume of an existing directory, quotas
// included.
bool GetDiskFreeSpaceExW(const char16_t* directory, std::uint64_t* free_to_caller);

// The root of the volume of a path, which need not exist: `C:\`, `\\server\share\`, or a folder
// that a volume is mounted on, with a separator at the end. `size` counts units, with the zero
// unit; too small a buffer gives 206, or loses the separator where it lacks one unit.
bool GetVolumePathNameW(const char16_t* path, char16_t* buffer, std::uint32_t size);

// The name of a volume's file system ("NTFS", "FAT32", "exFAT") and its serial number. `root` ends
// in a separator. Either result may be null where it is not asked for. `size` counts units, with
// the zero unit.
bool GetVolumeInformationW(const char16_t* root, char16_t* file_system, std::uint32_t size,
                           std::uint32_t* serial_number);

// Of BY_HANDLE_FILE_INFORMATION, what names a file or directory as long as it exists. A file that
// is copied or replaced gets another index; one that is renamed within its volume keeps it.
struct FileIdentity {
  std::uint32_t volume_serial_number = 0;
  std::uint64_t file_index = 0;
};

bool GetFileInformationByHandle(Handle handle, FileIdentity* identity);

}  // namespace tolvarine::updater::platform
