// The C runtime's buffered file streams, for the files that are opened without locking them: the
// journal slots, and installed files for their fingerprints. They leave no code in GetLastError().

#pragma once

#include <cstddef>

namespace tolvarine::updater::platform {

struct Stream;

inline constexpr int kShDenyNo = 0x40;  // Others may read and write the file, but not delete it.

// Opens `path` in a mode of fopen ("rb", "wb"); null on failure.
Stream* _wfsopen(const char16_t* path, const char16_t* mode, int sharing);

// Return the number of bytes read or written: fewer than `size` at the end of the file and after an
// error, which ferror distinguishes.
std::size_t fread(void* buffer, std::size_t size, Stream* stream);
std::size_t fwrite(const void* buffer, std::size_t size, Stream* stream);

// Writes buffered bytes to the system, not to the disk. 0 on success.
int fflush(Stream* stream);

// Not 0 once an operation on the stream has failed.
int ferror(Stream* stream);

// 0 on success. The stream is closed in either case.
int fclose(Stream* stream);

}  // namespace tolvarine::updater::platform
