#include "state/checked_record.h"

#include <cstdint>

#include "files/failure.h"
#include "files/file_operations.h"
#include "files/unique_handle.h"
#include "platform/error_codes.h"
#include "platform/files.h"
#include "release/digest.h"
#include "release/file_bytes.h"
#include "release/strict_json.h"
#include "text/system_error.h"

namespace tolvarine::updater::application {
namespace {

constexpr std::size_t kByteLimit = std::size_t{1} << 20;
constexpr JsonLimits kJsonLimits = {.depth = 6, .values = 10000};
constexpr PathView kTemporarySuffix = u".new";

void WriteAndFlush(const Path& path, std::string_view content) {
  const Path extended = ExtendedLengthPath(path);
  const FileHandle file(platform::CreateFileW(extended.c_str(), platform::kGenericWrite,
                                              platform::kFileShareNone, platform::kCreateAlways,
                                              platform::kFileAttributeNormal));
  if (!file) ThrowLastError();
  std::uint32_t written = 0;
  const auto size = static_cast<std::uint32_t>(content.size());
  if (!platform::WriteFile(file.get(), content.data(), size, &written)) ThrowLastError();
  if (written != size) throw SystemError(platform::kErrorWriteFault);
  if (!platform::FlushFileBuffers(file.get())) ThrowLastError();
}

struct ReadRecord {
  RecordState state = RecordState::Missing;
  nlohmann::json record{};
};

ReadRecord ReadOne(const Path& path) {
  const FileStatus status = QueryLinkStatus(path);
  if (status.kind == FileKind::not_found) return {};
  if (status.kind == FileKind::none) return {.state = RecordState::Unreadable};
  if (status.kind != FileKind::regular) return {.state = RecordState::Damaged};
  std::string text;
  try {
    text = ReadFileBytes(path, kByteLimit);
  } catch (const SystemError& failure) {
    if (IsNotFoundError(failure.code())) return {};
    return {.state = RecordState::Unreadable};
  } catch (const std::runtime_error&) {
    return {.state = RecordState::Damaged};  // Larger than any record.
  }
  try {
    std::optional<nlohmann::json> record = ParseRecord(text);
    if (!record) return {.state = RecordState::Damaged};
    return {RecordState::Sound, *std::move(record)};
  } catch (const std::runtime_error&) {
    return {.state = RecordState::Unreadable};  // The system cannot hash.
  }
}

}  // namespace

std::string FormatRecord(const nlohmann::json& record) {
  const std::string line = record.dump();
  return line + "\n" + Sha256OfBytes(line) + "\n";
}

std::optional<nlohmann::json> ParseRecord(std::string_view text) {
  const std::string_view line = text.substr(0, text.find('\n'));
  // Comparing the whole text leaves no other spelling of a record.
  if (text != std::string(line) + "\n" + Sha256OfBytes(line) + "\n") return std::nullopt;
  try {
    return ParseStrictJson(line, kJsonLimits);
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

void WriteFileDurably(const Path& file, std::string_view content) {
  const Path parent = ParentPath(file);
  const std::uint32_t code = CreateDirectories(parent);
  if (code != 0) throw FilesystemError("create_directories", code, parent);
  const Path temporary = file + Path(kTemporarySuffix);
  WriteAndFlush(temporary, content);
  ReplaceFileDurably(temporary, file);
}

LoadedRecord LoadRecord(const Path& file, const Path& second) {
  ReadRecord first = ReadOne(file);
  const bool decided = first.state == RecordState::Sound || first.state == RecordState::Unreadable;
  if (decided) return {first.state, std::move(first.record)};
  ReadRecord other = ReadOne(second);
  if (other.state == RecordState::Missing) return {.state = first.state, .record = {}};
  return {other.state, std::move(other.record)};
}

}  // namespace tolvarine::updater::application
