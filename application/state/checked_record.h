// Small records that survive a cut and a damaged file: a JSON object in two files.
//
// A file holds the object's text in one line and, in a second line, the SHA-256 of the first line
// without its newline as 64 lower-case digits. A file that does not match is damaged. Each file is
// replaced in one durable step.

#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "text/path_algebra.h"

namespace tolvarine::updater::application {

[[nodiscard]] std::string FormatRecord(const nlohmann::json& record);

// Nothing for a text that is damaged, or whose first line ParseStrictJson refuses.
[[nodiscard]] std::optional<nlohmann::json> ParseRecord(std::string_view text);

// Writes a file through the temporary `file` + ".new", flushes it and renames it with
// write-through, making missing parent directories. On return the file is durable; on failure
// (SystemError, FilesystemError) it is as it was and the temporary may be left.
void WriteFileDurably(const Path& file, std::string_view content);

enum class RecordState { Missing, Sound, Damaged, Unreadable };

struct LoadedRecord {
  RecordState state = RecordState::Missing;
  nlohmann::json record{};  // Where Sound.
};

// The record of `file`, or of `second` where the first is missing or damaged. Damaged: one of them
// is there and neither is sound. Unreadable: one that counts exists and cannot be opened or read
// just now; `second`, which may be older, does not stand in for such a `file`. Throws nothing but
// exhausted memory.
[[nodiscard]] LoadedRecord LoadRecord(const Path& file, const Path& second);

}  // namespace tolvarine::updater::application
