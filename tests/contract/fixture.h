// What the contract tests use beside the calls of the seam: a directory for each test, and another
// process that links files, runs and holds mutexes.
//
// The tests are one source for two platforms. The native program makes the calls of the simulated
// Windows, the Windows program the real ones. Where the two answer differently, the simulation is
// wrong, or the difference is a known gap of some versions of Wine (EXPECT_BUT_ON_WINE).

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "support/text_printers.h"

namespace tolvarine::updater::contract {

using Path = std::u16string;

// --- By platform ---------------------------------------------------------------------------------

// The versions of Wine whose gaps are known; they can be combined. Any other version is expected to
// answer as Windows does, so that a new version shows which gaps it has left.
enum WineVersions : std::uint32_t { kWine8 = 1, kWine10 = 2, kWine8And10 = kWine8 | kWine10 };

// Whether one of these versions of Wine answers the calls.
bool OnWine(WineVersions versions);
// Whether the host's root runs Wine: then read-only files can be written to.
bool RunsAsHostRoot();

// A new, empty directory: a full path as it is spelled on the disk, without a separator at the end.
// It is deleted with the last copy of `keep`.
struct Scratch {
  Path root;
  std::shared_ptr<void> keep;
};
Scratch MakeScratch();

void MakeHardLink(const Path& existing, const Path& path);
void SetAttributes(const Path& path, std::uint32_t attributes);

// A process that does nothing. `end` ends it; `forget` closes the test's own handle to it.
struct OtherProcess {
  std::uint32_t id = 0;
  std::function<void()> end;
  std::function<void()> forget;
};
OtherProcess StartProcess();

// Another thread acquires the mutex of this name. The function that is returned makes it release or
// abandon the mutex, and returns when that is done.
enum class Leaving { kReleasing, kDying };
std::function<void(Leaving)> HoldElsewhere(const std::u16string& name);

// --- Calls and their codes -----------------------------------------------------------------------

using namespace platform;

// Fails on these versions of Wine, too, when they answer otherwise than is known.
#define EXPECT_BUT_ON_WINE(versions, actual, expected, on_wine)                     \
  EXPECT_EQ(actual, OnWine(versions) ? (on_wine) : (expected)) << "a known gap of " \
                                                                  "Wine: " #versions

// 0 where a call has succeeded, otherwise the last error.
inline std::uint32_t Code(bool done) { return done ? 0 : GetLastError(); }

inline constexpr std::uint32_t kReadAndWrite = kGenericRead | kGenericWrite;
inline constexpr std::uint32_t kShareReadAndWrite = kFileShareRead | kFileShareWrite;
inline constexpr std::uint32_t kRemovalAccess =
    kDelete | kFileReadAttributes | kFileWriteAttributes;

// An open file, closed at the end of its scope. `code` is 0, or that of the open that failed.
struct File {
  explicit File(Handle opened) : handle(opened), code(Code(opened != kInvalidHandle)) {}
  explicit File(const Path& path, std::uint32_t access, std::uint32_t sharing = kFileShareAll,
                std::uint32_t disposition = kOpenExisting,
                std::uint32_t flags = kFileAttributeNormal)
      : File(CreateFileW(path.c_str(), access, sharing, disposition, flags)) {}
  File(const File&) = delete;
  File& operator=(const File&) = delete;
  ~File() { Close(); }

  void Close() {
    if (handle != kInvalidHandle) CloseHandle(handle);
    handle = kInvalidHandle;
  }

  Handle handle;
  std::uint32_t code;
};

// Opens a file or a directory.
inline Handle Open(const Path& path, std::uint32_t access, std::uint32_t link_flag = 0) {
  return CreateFile2(path.c_str(), access, kFileShareAll, kOpenExisting,
                     kFileFlagBackupSemantics | link_flag);
}
inline Handle OpenForRemoval(const Path& path) {
  return Open(path, kRemovalAccess, kFileFlagOpenReparsePoint);
}

// Marks a file or a directory for deletion.
inline std::uint32_t Mark(const Path& path) {
  const File file(OpenForRemoval(path));
  return file.code != 0 ? file.code
                        : Code(SetFileInformationByHandle(file.handle, FileDispositionInfo{true}));
}

inline std::uint32_t Rename(const Path& from, const Path& to) {
  return Code(
      MoveFileExW(from.c_str(), to.c_str(), kMovefileReplaceExisting | kMovefileWriteThrough));
}

inline std::uint32_t Attributes(const Path& path) { return GetFileAttributesW(path.c_str()); }

inline void Write(Handle file, std::string_view text) {
  std::uint32_t written = 0;
  EXPECT_TRUE(WriteFile(file, text.data(), static_cast<std::uint32_t>(text.size()), &written));
  EXPECT_EQ(written, text.size());
}

inline std::string Read(Handle file, std::uint32_t size) {
  std::string text(size, '\0');
  std::uint32_t read = 0;
  EXPECT_TRUE(ReadFile(file, text.data(), size, &read)) << GetLastError();
  return text.substr(0, read);
}

// Makes a file, or replaces its content.
inline void Put(const Path& path, std::string_view content) {
  const File file(path, kGenericWrite, kFileShareAll, kCreateAlways);
  ASSERT_EQ(file.code, 0u) << Shown(path);
  Write(file.handle, content);
}

// The content of a small file, or the code with which it cannot be opened.
inline std::string Content(const Path& path) {
  const File file(path, kGenericRead);
  return file.code == 0 ? Read(file.handle, 100) : "code " + std::to_string(file.code);
}

class ContractTest : public testing::Test {
 protected:
  [[nodiscard]] Path At(std::u16string_view name) const {
    return scratch_.root + u"\\" + Path(name);
  }
  [[nodiscard]] const Path& root() const { return scratch_.root; }

  Scratch scratch_ = MakeScratch();
};

}  // namespace tolvarine::updater::contract
