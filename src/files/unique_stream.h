// The owner of a file stream.

#pragma once

#include <memory>

#include "platform/streams.h"
#include "text/path_algebra.h"

namespace tolvarine::updater {

struct StreamCloser {
  // Ignores a failure of the close: a caller that needs the bytes on the disk flushes the file by
  // name afterwards.
  void operator()(platform::Stream* stream) const { platform::fclose(stream); }
};

using UniqueStream = std::unique_ptr<platform::Stream, StreamCloser>;

// Opens a file in a mode of fopen; null on failure. Others may read and write it meanwhile. The
// path is handed to the platform as given.
[[nodiscard]] inline UniqueStream OpenStream(const Path& path, const char16_t* mode) {
  return UniqueStream(platform::_wfsopen(path.c_str(), mode, platform::kShDenyNo));
}

}  // namespace tolvarine::updater
