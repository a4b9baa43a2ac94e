#include "platform/streams.h"

#include <share.h>
#include <stdio.h>
#include <wchar.h>

#include "platform/windows/native.h"

namespace tolvarine::updater::platform {

static_assert(kShDenyNo == _SH_DENYNO);

namespace {

constexpr std::size_t kByte = 1;  // The size of an item, so that the results are in bytes.

FILE* Native(Stream* stream) { return reinterpret_cast<FILE*>(stream); }

}  // namespace

Stream* _wfsopen(const char16_t* path, const char16_t* mode, int sharing) {
  return reinterpret_cast<Stream*>(::_wfsopen(Wide(path), Wide(mode), sharing));
}

std::size_t fread(void* buffer, std::size_t size, Stream* stream) {
  return ::fread(buffer, kByte, size, Native(stream));
}

std::size_t fwrite(const void* buffer, std::size_t size, Stream* stream) {
  return ::fwrite(buffer, kByte, size, Native(stream));
}

int fflush(Stream* stream) { return ::fflush(Native(stream)); }

int ferror(Stream* stream) { return ::ferror(Native(stream)); }

int fclose(Stream* stream) { return ::fclose(Native(stream)); }

}  // namespace tolvarine::updater::platform
