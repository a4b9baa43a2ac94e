// The C runtime's streams: a buffer over FileSystem, without any other counted call.

#include "platform/streams.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "platform/files.h"
#include "simulated_windows/computer.h"
#include "simulated_windows/file_system.h"

namespace tolvarine::updater::platform {

using simulated::Call;
using simulated::Computer;
using simulated::Fault;
using simulated::FileSystem;
using simulated::OpenFile;

namespace {

constexpr std::size_t kBufferSize = 4096;
constexpr int kEof = -1;

}  // namespace

struct Stream {
  Handle handle = kInvalidHandle;
  std::u16string path;
  std::string pending;  // Not written to the file yet.
  bool failed = false;
};

namespace {

// Writes the pending bytes to the file, at most `limit` of them. False where not all are written.
bool Drain(Stream* stream, std::size_t limit) {
  FileSystem& files = Computer::Current().files();
  const std::string_view bytes = std::string_view(stream->pending).substr(0, limit);
  const bool whole = bytes.size() == stream->pending.size();
  OpenFile* const file = files.Find(stream->handle);
  // A stream for reading has no pending bytes, and no right to write.
  const bool taken = file != nullptr && (bytes.empty() || files.Write(*file, bytes) == 0);
  const bool written = taken && whole;
  stream->pending.clear();
  if (!written) stream->failed = true;
  return written;
}

std::size_t LimitOf(const Fault* fault) {
  if (fault == nullptr) return ~std::size_t{0};
  return fault->partial ? *fault->partial : 0;
}

}  // namespace

Stream* _wfsopen(const char16_t* path, const char16_t* mode, int sharing) {
  static_cast<void>(sharing);  // Only kShDenyNo is in use.
  Computer& computer = Computer::Current();
  if (computer.calls.Enter(Call::WfsOpen, path) != nullptr) return nullptr;
  const bool write = *mode == u'w';
  const FileSystem::Opened opened =
      computer.files().Open({.path = path,
                             .access = write ? kGenericWrite : kGenericRead,
                             .sharing = kFileShareRead | kFileShareWrite,
                             .disposition = write ? kCreateAlways : kOpenExisting,
                             .flags = kFileAttributeNormal});
  if (opened.handle == kInvalidHandle) return nullptr;
  return new Stream{opened.handle, path, {}, false};
}

std::size_t fread(void* buffer, std::size_t size, Stream* stream) {
  Computer& computer = Computer::Current();
  const std::size_t limit = LimitOf(computer.calls.Enter(Call::Fread, stream->path));
  OpenFile* const file = computer.files().Find(stream->handle);
  if (limit < size || file == nullptr) stream->failed = true;
  if (file == nullptr) return 0;
  std::uint32_t read = 0;
  computer.files().Read(*file, buffer, static_cast<std::uint32_t>(std::min(size, limit)), &read);
  return read;
}

std::size_t fwrite(const void* buffer, std::size_t size, Stream* stream) {
  const std::size_t limit = LimitOf(Computer::Current().calls.Enter(Call::Fwrite, stream->path));
  const std::size_t taken = std::min(size, limit);
  stream->pending.append(static_cast<const char*>(buffer), taken);
  if (taken < size) stream->failed = true;
  const bool full = stream->pending.size() >= kBufferSize;
  if (full && !Drain(stream, ~std::size_t{0})) return 0;
  return taken;
}

int fflush(Stream* stream) {
  const Fault* const fault = Computer::Current().calls.Enter(Call::Fflush, stream->path);
  return Drain(stream, LimitOf(fault)) && fault == nullptr ? 0 : kEof;
}

int ferror(Stream* stream) { return stream->failed ? 1 : 0; }

int fclose(Stream* stream) {
  Computer& computer = Computer::Current();
  const Fault* const fault = computer.calls.Enter(Call::Fclose, stream->path);
  bool sound = fault == nullptr;
  if (!computer.calls.power_is_off()) {
    sound = Drain(stream, LimitOf(fault)) && sound;
    computer.files().Close(stream->handle);
  }
  delete stream;
  return sound ? 0 : kEof;
}

}  // namespace tolvarine::updater::platform
