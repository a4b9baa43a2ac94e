// What the contract tests have beyond the calls of the seam: a directory for each test, and
// somebody else on the machine who links files, runs, and holds mutexes.
//
// The tests are one source for two platforms. Natively they ask the simulated Windows, as a Windows
// program the real calls. Where the two differ, the simulation is wrong, or the difference is a gap
// of Wine, which EXPECT_BUT_ON_WINE names: it asserts what Wine does instead, so that a Wine that
// has closed the gap shows up.

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

// Whether the calls are answered by Wine.
bool OnWine();
// And whether it runs as the host's root, who may write to read-only files.
bool OnWineAsRoot();

// A fresh, empty directory: a full path in its spelling on the disk, without a separator at the
// end. What is left in it goes with the last copy of `keep`.
struct Scratch {
  Path root;
  std::shared_ptr<void> keep;
};
Scratch MakeScratch();

void MakeHardLink(const Path& existing, const Path& path);
void SetAttributes(const Path& path, std::uint32_t attributes);

// A process that does nothing until it is ended. Its object stays until it is forgotten.
struct OtherProcess {
  std::uint32_t id = 0;
  std::function<void()> end;
  std::function<void()> forget;
};
OtherProcess StartProcess();

// Somebody else takes the mutex of this name. The function returned makes them leave it, and
// returns when they have.
enum class Leaving { kReleasing, kDying };
std::function<void(Leaving)> HoldElsewhere(const std::u16string& name);

// --- Vocabulary ----------------------------------------------------------------------------------

using namespace platform;

#define EXPECT_BUT_ON_WINE(actual, expected, on_wine, why) \
  EXPECT_EQ((OnWine() ? (on_wine) : (expected)), (actual)) << "a known gap of Wine: " << (why)

// 0 where a call has succeeded, otherwise the code that it left.
inline std::uint32_t Code(bool done) { return done ? 0 : GetLastError(); }

// What the program's opens have in common.
inline constexpr std::uint32_t kReadAndWrite = kGenericRead | kGenericWrite;
inline constexpr std::uint32_t kShareReadAndWrite = kFileShareRead | kFileShareWrite;
inline constexpr std::uint32_t kRemovalAccess =
    kDelete | kFileReadAttributes | kFileWriteAttributes;

// An open file, closed at the end of its scope. `code` is what the open left.
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

// A file or a directory, to look at it, and to remove it.
inline Handle Open(const Path& path, std::uint32_t access, std::uint32_t link_flag = 0) {
  return CreateFile2(path.c_str(), access, kFileShareAll, kOpenExisting,
                     kFileFlagBackupSemantics | link_flag);
}
inline Handle OpenForRemoval(const Path& path) {
  return Open(path, kRemovalAccess, kFileFlagOpenReparsePoint);
}

// Marks a file or a directory for its removal.
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
  EXPECT_EQ(text.size(), written);
}

inline std::string Read(Handle file, std::uint32_t size) {
  std::string text(size, '\0');
  std::uint32_t read = 0;
  EXPECT_TRUE(ReadFile(file, text.data(), size, &read)) << GetLastError();
  return text.substr(0, read);
}

// Makes a file, or gives it another content.
inline void Put(const Path& path, std::string_view content) {
  const File file(path, kGenericWrite, kFileShareAll, kCreateAlways);
  ASSERT_EQ(0u, file.code) << Shown(path);
  Write(file.handle, content);
}

// The content of a small file, or why it cannot be had.
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
