#include "platform/files.h"

#include <algorithm>
#include <cwchar>

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

static_assert(kFileAppendData == FILE_APPEND_DATA);
static_assert(kFileReadAttributes == FILE_READ_ATTRIBUTES);
static_assert(kFileWriteAttributes == FILE_WRITE_ATTRIBUTES);
static_assert(kDelete == DELETE);
static_assert(kGenericWrite == GENERIC_WRITE);
static_assert(kGenericRead == GENERIC_READ);

static_assert(kFileShareRead == FILE_SHARE_READ);
static_assert(kFileShareWrite == FILE_SHARE_WRITE);
static_assert(kFileShareDelete == FILE_SHARE_DELETE);
static_assert(kFileShareAll == (FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE));

static_assert(kCreateNew == CREATE_NEW);
static_assert(kCreateAlways == CREATE_ALWAYS);
static_assert(kOpenExisting == OPEN_EXISTING);
static_assert(kOpenAlways == OPEN_ALWAYS);

static_assert(kFileAttributeReadonly == FILE_ATTRIBUTE_READONLY);
static_assert(kFileAttributeDirectory == FILE_ATTRIBUTE_DIRECTORY);
static_assert(kFileAttributeArchive == FILE_ATTRIBUTE_ARCHIVE);
static_assert(kFileAttributeNormal == FILE_ATTRIBUTE_NORMAL);
static_assert(kFileAttributeReparsePoint == FILE_ATTRIBUTE_REPARSE_POINT);
static_assert(kInvalidFileAttributes == INVALID_FILE_ATTRIBUTES);

static_assert(kFileFlagOpenReparsePoint == FILE_FLAG_OPEN_REPARSE_POINT);
static_assert(kFileFlagBackupSemantics == FILE_FLAG_BACKUP_SEMANTICS);
static_assert(kFileFlagSequentialScan == FILE_FLAG_SEQUENTIAL_SCAN);

static_assert(kIoReparseTagMountPoint == IO_REPARSE_TAG_MOUNT_POINT);
static_assert(kIoReparseTagSymlink == IO_REPARSE_TAG_SYMLINK);

static_assert(kFileBegin == FILE_BEGIN);
static_assert(kVolumeNameDos == VOLUME_NAME_DOS);
static_assert(kVolumeNameNt == VOLUME_NAME_NT);
static_assert(kMovefileReplaceExisting == MOVEFILE_REPLACE_EXISTING);
static_assert(kMovefileWriteThrough == MOVEFILE_WRITE_THROUGH);
static_assert(kFindExInfoBasic == ::FindExInfoBasic);
static_assert(kFindExSearchNameMatch == ::FindExSearchNameMatch);

namespace {

// FileDispositionInfoEx and its structure. The headers declare them only for programs that require
// Windows 10 1607 and give the number to another class otherwise. This program runs on older
// systems as well: they refuse the class, and the caller then takes another one.
struct DispositionFlags {
  DWORD flags;
};
constexpr auto kDispositionInfoExClass = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);

std::uint64_t Joined(DWORD high, DWORD low) { return std::uint64_t{high} << 32 | low; }

// Does not throw for a name of up to the reserved MAX_PATH units: a copy into the string allocates
// nothing, whereas an assignment of wchar_t units would build a temporary string.
void Store(const WIN32_FIND_DATAW& native, FindData* data) {
  data->attributes = native.dwFileAttributes;
  data->reparse_tag = native.dwReserved0;
  data->size = Joined(native.nFileSizeHigh, native.nFileSizeLow);
  const std::size_t length = std::wcslen(native.cFileName);
  data->name.resize(length);
  std::copy_n(native.cFileName, length, data->name.begin());
}

}  // namespace

Handle CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags) {
  return FromNative(::CreateFileW(Wide(path), access, sharing, /*lpSecurityAttributes=*/nullptr,
                                  disposition, flags, /*hTemplateFile=*/nullptr));
}

Handle CreateFile2(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags) {
  CREATEFILE2_EXTENDED_PARAMETERS parameters = {};
  parameters.dwSize = sizeof parameters;
  parameters.dwFileFlags = flags;
  return FromNative(::CreateFile2(Wide(path), access, sharing, disposition, &parameters));
}

bool ReadFile(Handle handle, void* buffer, std::uint32_t size, std::uint32_t* read) {
  DWORD count = 0;
  const BOOL done = ::ReadFile(Native(handle), buffer, size, &count, /*lpOverlapped=*/nullptr);
  *read = count;
  return done != FALSE;
}

bool WriteFile(Handle handle, const void* buffer, std::uint32_t size, std::uint32_t* written) {
  DWORD count = 0;
  const BOOL done = ::WriteFile(Native(handle), buffer, size, &count, /*lpOverlapped=*/nullptr);
  *written = count;
  return done != FALSE;
}

bool SetFilePointerEx(Handle handle, std::int64_t distance, std::uint32_t method) {
  LARGE_INTEGER native_distance = {};
  native_distance.QuadPart = distance;
  return ::SetFilePointerEx(Native(handle), native_distance, /*lpNewFilePointer=*/nullptr,
                            method) != FALSE;
}

bool GetFileSizeEx(Handle handle, std::int64_t* size) {
  LARGE_INTEGER native_size = {};
  const BOOL done = ::GetFileSizeEx(Native(handle), &native_size);
  *size = native_size.QuadPart;
  return done != FALSE;
}

bool FlushFileBuffers(Handle handle) { return ::FlushFileBuffers(Native(handle)) != FALSE; }

bool GetFileInformationByHandle(Handle handle, ByHandleFileInformation* information) {
  BY_HANDLE_FILE_INFORMATION native = {};
  const BOOL done = ::GetFileInformationByHandle(Native(handle), &native);
  information->number_of_links = native.nNumberOfLinks;
  return done != FALSE;
}

bool GetFileInformationByHandleEx(Handle handle, FileBasicInfo* information) {
  FILE_BASIC_INFO native = {};
  const BOOL done =
      ::GetFileInformationByHandleEx(Native(handle), ::FileBasicInfo, &native, sizeof native);
  information->creation_time = native.CreationTime.QuadPart;
  information->last_access_time = native.LastAccessTime.QuadPart;
  information->last_write_time = native.LastWriteTime.QuadPart;
  information->change_time = native.ChangeTime.QuadPart;
  information->attributes = native.FileAttributes;
  return done != FALSE;
}

bool GetFileInformationByHandleEx(Handle handle, FileStandardInfo* information) {
  FILE_STANDARD_INFO native = {};
  const BOOL done =
      ::GetFileInformationByHandleEx(Native(handle), ::FileStandardInfo, &native, sizeof native);
  information->end_of_file = native.EndOfFile.QuadPart;
  return done != FALSE;
}

bool GetFileInformationByHandleEx(Handle handle, FileAttributeTagInfo* information) {
  FILE_ATTRIBUTE_TAG_INFO native = {};
  const BOOL done = ::GetFileInformationByHandleEx(Native(handle), ::FileAttributeTagInfo, &native,
                                                   sizeof native);
  information->attributes = native.FileAttributes;
  information->reparse_tag = native.ReparseTag;
  return done != FALSE;
}

bool SetFileInformationByHandle(Handle handle, const FileBasicInfo& information) {
  FILE_BASIC_INFO native = {};
  native.CreationTime.QuadPart = information.creation_time;
  native.LastAccessTime.QuadPart = information.last_access_time;
  native.LastWriteTime.QuadPart = information.last_write_time;
  native.ChangeTime.QuadPart = information.change_time;
  native.FileAttributes = information.attributes;
  return ::SetFileInformationByHandle(Native(handle), ::FileBasicInfo, &native, sizeof native) !=
         FALSE;
}

bool SetFileInformationByHandle(Handle handle, const FileDispositionInfo& information) {
  FILE_DISPOSITION_INFO native = {};
  native.DeleteFile = information.delete_file ? TRUE : FALSE;
  return ::SetFileInformationByHandle(Native(handle), ::FileDispositionInfo, &native,
                                      sizeof native) != FALSE;
}

bool SetFileInformationByHandle(Handle handle, const FileDispositionInfoEx& information) {
  DispositionFlags native = {information.flags};
  return ::SetFileInformationByHandle(Native(handle), kDispositionInfoExClass, &native,
                                      sizeof native) != FALSE;
}

std::uint32_t GetFinalPathNameByHandleW(Handle handle, char16_t* buffer, std::uint32_t size,
                                        std::uint32_t flags) {
  return ::GetFinalPathNameByHandleW(Native(handle), Wide(buffer), size, flags);
}

std::uint32_t GetFileAttributesW(const char16_t* path) { return ::GetFileAttributesW(Wide(path)); }

bool GetFileAttributesExW(const char16_t* path, FileAttributeData* data) {
  WIN32_FILE_ATTRIBUTE_DATA native = {};
  const BOOL done = ::GetFileAttributesExW(Wide(path), ::GetFileExInfoStandard, &native);
  data->attributes = native.dwFileAttributes;
  data->size = Joined(native.nFileSizeHigh, native.nFileSizeLow);
  return done != FALSE;
}

bool MoveFileExW(const char16_t* from, const char16_t* to, std::uint32_t flags) {
  return ::MoveFileExW(Wide(from), Wide(to), flags) != FALSE;
}

bool CopyFileW(const char16_t* from, const char16_t* to, bool fail_if_exists) {
  return ::CopyFileW(Wide(from), Wide(to), fail_if_exists ? TRUE : FALSE) != FALSE;
}

bool DeleteFileW(const char16_t* path) { return ::DeleteFileW(Wide(path)) != FALSE; }

bool CreateDirectoryW(const char16_t* path) {
  return ::CreateDirectoryW(Wide(path), /*lpSecurityAttributes=*/nullptr) != FALSE;
}

Handle FindFirstFileW(const char16_t* pattern, FindData* data) {
  data->name.reserve(MAX_PATH);  // Nothing may throw while the search handle has no owner.
  WIN32_FIND_DATAW native = {};
  const HANDLE find = ::FindFirstFileW(Wide(pattern), &native);
  if (find != INVALID_HANDLE_VALUE) Store(native, data);
  return FromNative(find);
}

Handle FindFirstFileExW(const char16_t* pattern, std::uint32_t level, FindData* data,
                        std::uint32_t search, std::uint32_t flags) {
  data->name.reserve(MAX_PATH);  // For the same reason.
  WIN32_FIND_DATAW native = {};
  const HANDLE find = ::FindFirstFileExW(Wide(pattern), static_cast<FINDEX_INFO_LEVELS>(level),
                                         &native, static_cast<FINDEX_SEARCH_OPS>(search),
                                         /*lpSearchFilter=*/nullptr, flags);
  if (find != INVALID_HANDLE_VALUE) Store(native, data);
  return FromNative(find);
}

bool FindNextFileW(Handle find, FindData* data) {
  WIN32_FIND_DATAW native = {};
  if (::FindNextFileW(Native(find), &native) == FALSE) return false;
  Store(native, data);
  return true;
}

bool FindClose(Handle find) { return ::FindClose(Native(find)) != FALSE; }

}  // namespace tolvarine::updater::platform
