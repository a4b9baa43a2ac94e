// Files and directories: the calls on open handles and the calls on paths.
//
// A path is 16-bit text that ends in a zero unit. The program declares no long-path awareness, so a
// path of 260 units and more works only in its extended form (`\\?\`).

#pragma once

#include <cstdint>
#include <string>

#include "platform/handles.h"

namespace tolvarine::updater::platform {

// Access rights.
inline constexpr std::uint32_t kFileAppendData = 0x4;
inline constexpr std::uint32_t kFileReadAttributes = 0x80;
inline constexpr std::uint32_t kFileWriteAttributes = 0x100;
inline constexpr std::uint32_t kDelete = 0x10000;
inline constexpr std::uint32_t kGenericWrite = 0x40000000;
inline constexpr std::uint32_t kGenericRead = 0x80000000;

// Sharing.
inline constexpr std::uint32_t kFileShareNone = 0;
inline constexpr std::uint32_t kFileShareRead = 1;
inline constexpr std::uint32_t kFileShareWrite = 2;
inline constexpr std::uint32_t kFileShareDelete = 4;
inline constexpr std::uint32_t kFileShareAll = 7;

// Dispositions.
inline constexpr std::uint32_t kCreateNew = 1;
inline constexpr std::uint32_t kCreateAlways = 2;
inline constexpr std::uint32_t kOpenExisting = 3;
inline constexpr std::uint32_t kOpenAlways = 4;

// Attributes.
inline constexpr std::uint32_t kFileAttributeReadonly = 0x1;
inline constexpr std::uint32_t kFileAttributeDirectory = 0x10;
inline constexpr std::uint32_t kFileAttributeArchive = 0x20;
inline constexpr std::uint32_t kFileAttributeNormal = 0x80;
inline constexpr std::uint32_t kFileAttributeReparsePoint = 0x400;
inline constexpr std::uint32_t kInvalidFileAttributes = 0xFFFFFFFF;

// Flags of an open.
inline constexpr std::uint32_t kFileFlagOpenReparsePoint = 0x00200000;
inline constexpr std::uint32_t kFileFlagBackupSemantics = 0x02000000;
inline constexpr std::uint32_t kFileFlagSequentialScan = 0x08000000;

// Reparse tags.
inline constexpr std::uint32_t kIoReparseTagMountPoint = 0xA0000003;
inline constexpr std::uint32_t kIoReparseTagSymlink = 0xA000000C;

// Opens or creates a file; kInvalidHandle on failure. `flags` holds attributes and flags.
Handle CreateFileW(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags);

// The same by the newer call; `flags` holds flags and no attributes.
Handle CreateFile2(const char16_t* path, std::uint32_t access, std::uint32_t sharing,
                   std::uint32_t disposition, std::uint32_t flags);

// Reads from the handle's position. Success with `*read` 0 is the end of the file.
bool ReadFile(Handle handle, void* buffer, std::uint32_t size, std::uint32_t* read);

// Writes at the handle's position or, with append access, at the end. May succeed with `*written`
// below `size`.
bool WriteFile(Handle handle, const void* buffer, std::uint32_t size, std::uint32_t* written);

inline constexpr std::uint32_t kFileBegin = 0;

bool SetFilePointerEx(Handle handle, std::int64_t distance, std::uint32_t method);
bool GetFileSizeEx(Handle handle, std::int64_t* size);

// If it returns true, the file's content and metadata are on stable storage.
bool FlushFileBuffers(Handle handle);

// The member of BY_HANDLE_FILE_INFORMATION that the program reads.
struct ByHandleFileInformation {
  std::uint32_t number_of_links = 0;
};

bool GetFileInformationByHandle(Handle handle, ByHandleFileInformation* information);

// The classes of GetFileInformationByHandleEx that the program reads; the structure selects one.
struct FileBasicInfo {  // Class 0.
  std::int64_t creation_time = 0;
  std::int64_t last_access_time = 0;
  std::int64_t last_write_time = 0;
  std::int64_t change_time = 0;
  std::uint32_t attributes = 0;
};

struct FileStandardInfo {  // Class 1.
  std::int64_t end_of_file = 0;
};

struct FileAttributeTagInfo {  // Class 9.
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;
};

bool GetFileInformationByHandleEx(Handle handle, FileBasicInfo* information);
bool GetFileInformationByHandleEx(Handle handle, FileStandardInfo* information);
bool GetFileInformationByHandleEx(Handle handle, FileAttributeTagInfo* information);

// The classes of SetFileInformationByHandle that the program sets; the structure selects one.
struct FileDispositionInfo {  // Class 4.
  bool delete_file = false;
};

inline constexpr std::uint32_t kFileDispositionDelete = 1;
inline constexpr std::uint32_t kFileDispositionPosixSemantics = 2;
inline constexpr std::uint32_t kFileDispositionIgnoreReadonly = 0x10;

struct FileDispositionInfoEx {  // Class 21; fails with 1, 50 or 87 where it is not supported.
  std::uint32_t flags = 0;
};

bool SetFileInformationByHandle(Handle handle, const FileBasicInfo& information);
bool SetFileInformationByHandle(Handle handle, const FileDispositionInfo& information);
bool SetFileInformationByHandle(Handle handle, const FileDispositionInfoEx& information);

// Flags of GetFinalPathNameByHandleW, which both ask for the normalized name (its flag is 0). The
// first fails with ERROR_PATH_NOT_FOUND for a volume without a drive letter.
inline constexpr std::uint32_t kVolumeNameDos = 0;
inline constexpr std::uint32_t kVolumeNameNt = 2;

// The resolved path of an open file, in the spelling on the disk. Returns its length in units. A
// result of at least `size` is the size that it needs, with its zero unit; 0 is failure.
std::uint32_t GetFinalPathNameByHandleW(Handle handle, char16_t* buffer, std::uint32_t size,
                                        std::uint32_t flags);

// The attributes of the entry itself, not of a link's target; kInvalidFileAttributes on failure.
std::uint32_t GetFileAttributesW(const char16_t* path);

struct FileAttributeData {
  std::uint32_t attributes = 0;
  std::uint64_t size = 0;
};

// Level GetFileExInfoStandard.
bool GetFileAttributesExW(const char16_t* path, FileAttributeData* data);

inline constexpr std::uint32_t kMovefileReplaceExisting = 1;
inline constexpr std::uint32_t kMovefileWriteThrough = 8;

// Renames within a volume. On failure nothing has changed.
bool MoveFileExW(const char16_t* from, const char16_t* to, std::uint32_t flags);

// Copies content and attributes, following links at `from`.
bool CopyFileW(const char16_t* from, const char16_t* to, bool fail_if_exists);

bool DeleteFileW(const char16_t* path);
bool CreateDirectoryW(const char16_t* path);

// One record of a directory (WIN32_FIND_DATAW).
struct FindData {
  std::uint32_t attributes = 0;
  std::uint32_t reparse_tag = 0;  // Valid with kFileAttributeReparsePoint.
  std::uint64_t size = 0;
  std::u16string name;
};

inline constexpr std::uint32_t kFindExInfoBasic = 1;
inline constexpr std::uint32_t kFindExSearchNameMatch = 0;

// Begins a search and gives its first record; kInvalidHandle if there is none or the search fails.
// FindNextFileW gives the next ones, until it fails with ERROR_NO_MORE_FILES.
Handle FindFirstFileW(const char16_t* pattern, FindData* data);
Handle FindFirstFileExW(const char16_t* pattern, std::uint32_t level, FindData* data,
                        std::uint32_t search, std::uint32_t flags);
bool FindNextFileW(Handle find, FindData* data);
bool FindClose(Handle find);

}  // namespace tolvarine::updater::platform
