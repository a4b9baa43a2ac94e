#include "system/volumes.h"

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

bool GetDiskFreeSpaceExW(const char16_t* directory, std::uint64_t* free_to_caller) {
  ULARGE_INTEGER native = {};
  const BOOL done =
      ::GetDiskFreeSpaceExW(Wide(directory), &native, /*lpTotalNumberOfBytes=*/nullptr,
                            /*lpTotalNumberOfFreeBytes=*/nullptr);
  *free_to_caller = native.QuadPart;
  return done != FALSE;
}

bool GetVolumePathNameW(const char16_t* path, char16_t* buffer, std::uint32_t size) {
  return ::GetVolumePathNameW(Wide(path), Wide(buffer), size) != FALSE;
}

bool GetVolumeInformationW(const char16_t* root, char16_t* file_system, std::uint32_t size,
                           std::uint32_t* serial_number) {
  DWORD native = 0;
  const BOOL done = ::GetVolumeInformationW(
      Wide(root), /*lpVolumeNameBuffer=*/nullptr, /*nVolumeNameSize=*/0, &native,
      /*lpMaximumComponentLength=*/nullptr, /*lpFileSystemFlags=*/nullptr, Wide(file_system), size);
  if (serial_number != nullptr) *serial_number = native;
  return done != FALSE;
}

bool GetFileInformationByHandle(Handle handle, FileIdentity* identity) {
  BY_HANDLE_FILE_INFORMATION native = {};
  const BOOL done = ::GetFileInformationByHandle(Native(handle), &native);
  identity->volume_serial_number = native.dwVolumeSerialNumber;
  identity->file_index = std::uint64_t{native.nFileIndexHigh} << 32 | native.nFileIndexLow;
  return done != FALSE;
}

}  // namespace tolvarine::updater::platform
