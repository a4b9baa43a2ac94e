// Files from outside, read once from their start to their end.

#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

// Reads a file in blocks of up to 64 KiB, opened so that others may read, write, rename and delete
// it meanwhile. Throws SystemError where it cannot be opened or read; what `visit` throws passes
// through.
void VisitFileBlocks(const Path& path, const std::function<void(std::string_view)>& visit);

// All bytes of a file. Throws as VisitFileBlocks does, and std::runtime_error for a file of more
// than `limit` bytes, which is not read.
[[nodiscard]] std::string ReadFileBytes(const Path& path, std::size_t limit);

}  // namespace tolvarine::updater::application
