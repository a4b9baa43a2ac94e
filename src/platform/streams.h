// The C runtime's buffered file streams, for the two places where a file is read or written without
// asking for exclusion: the journal slots and the fingerprints of installed files. They leave no
// code in GetLastError().

#pragma once

#include <cstddef>

namespace tolvarine::updater::platform {

struct Stream;

inline constexpr int kShDenyNo = 0x40;  // _SH_DENYNO: others may read and write, but not delete.

// Opens `path` in a mode of fopen ("rb", "wb"); null on failure.
Stream* _wfsopen(const char16_t* path, const char16_t* mode, int sharing);

// The numbers of bytes moved; fewer than `size` at the end of the file or after an error, which
// ferror tells apart.
std::size_t fread(void* buffer, std::size_t size, Stream* stream);
std::size_t fwrite(const void* buffer, std::size_t size, Stream* stream);

// Hands buffered bytes to the system, not to the disk. 0 on success.
int fflush(Stream* stream);

// Not 0 once an operation on the stream has failed.
int ferror(Stream* stream);

// 0 on success. The stream is gone either way.
int fclose(Stream* stream);

}  // namespace tolvarine::updater::platform
