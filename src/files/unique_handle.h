// Owners of file and search handles. They close the handle when they are destroyed.

#pragma once

#include <cstdint>
#include <utility>

#include "platform/files.h"
#include "platform/handles.h"

namespace tolvarine::updater {

// Owns a handle unless its value is `kNone`. Closing preserves the thread's last error, so that the
// code of a failure can still be read after the scope of the handle.
template <auto Close, platform::Handle kNone>
class UniqueHandle {
 public:
  UniqueHandle() = default;
  explicit UniqueHandle(platform::Handle handle) : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(std::exchange(other.handle_, kNone)) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) {
      Reset();
      handle_ = std::exchange(other.handle_, kNone);
    }
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { Reset(); }

  [[nodiscard]] platform::Handle get() const { return handle_; }
  [[nodiscard]] explicit operator bool() const { return handle_ != kNone; }

  void Reset() {
    if (handle_ == kNone) return;
    const std::uint32_t last_error = platform::GetLastError();
    Close(std::exchange(handle_, kNone));
    platform::SetLastError(last_error);
  }

 private:
  platform::Handle handle_ = kNone;
};

// A file that CreateFileW or CreateFile2 opened.
using FileHandle = UniqueHandle<platform::CloseHandle, platform::kInvalidHandle>;

// A search that FindFirstFileW or FindFirstFileExW began.
using FindHandle = UniqueHandle<platform::FindClose, platform::kInvalidHandle>;

}  // namespace tolvarine::updater
