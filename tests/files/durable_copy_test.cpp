#include "files/durable_copy.h"

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

const Path kSource = u"C:\\s\\source";
const Path kTarget = u"C:\\t\\file";
const Path kTemporary = u"C:\\t\\new";

// A fault in one call, and the result that it leads to.
struct FaultRow {
  Call call;
  std::uint32_t code;
  std::string result;
};

class DurableCopy : public FileFixture {
 protected:
  DurableCopy() { CreateFiles(); }

  // A source of more than one block, an old file, and a stale temporary.
  void CreateFiles() {
    computer.disk.WriteFile(kSource, std::string(65537, 'n'));
    computer.disk.WriteFile(kTarget, "old");
    computer.disk.WriteFile(kTemporary, std::string(70'000, 's'));
    computer.disk.SetAttributes(kSource, platform::kFileAttributeArchive);
  }

  // What an operation throws, and the files of the target's directory with their sizes.
  template <typename Operation>
  std::string Result(Operation operation) {
    std::string result = Thrown(operation);
    for (const auto& [name, content] : computer.disk.Tree(u"C:\\t")) {
      result += ", " + Shown(name) + " " + std::to_string(content.size());
    }
    return result;
  }
  std::string Copy() {
    return Result([] { CopyFileDurably(kSource, kTarget, kTemporary); });
  }
  std::string CopyLocked() {
    const LockedReleaseFile file(kSource);
    return Result([&] { CopyLockedFileToTemporary(file, kTemporary); });
  }
};

TEST_F(DurableCopy, ACopyReplacesItsDestinationInTheLastStepOrLeavesIt) {
  const FaultRow table[] = {
      {Call::CreateDirectoryW, 5,
       "system 5: Could not create backup or restore directory: *, file 3, new 70000"},
      {Call::DeleteFileW, 5,
       "system 5: Could not remove stale backup or restore temporary: *, file 3, new 70000"},
      {Call::DeleteFileW, 2, "done, file 65537"},
      {Call::DeleteFileW, 3, "done, file 65537"},
      {Call::CopyFileW, 5, "system 5: Could not copy backup or restore temporary: *, file 3"},
      {Call::FlushFileBuffers, 5, "system 5: *, file 3, new 65537"},
      {Call::MoveFileExW, 5, "system 5: *, file 3, new 65537"}};
  for (const FaultRow& row : table) {
    CreateFiles();
    Inject(row.call, row.code);
    EXPECT_EQ(Copy(), row.result) << CallName(row.call) << " fails with " << row.code;
  }
  computer.disk.Remove(u"C:\\t");
  EXPECT_EQ(Copy(), "done, file 65537") << "into a directory that is made";
  EXPECT_TRUE(computer.disk.ReadFile(kTarget) == std::string(65537, 'n'));
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty()) << "not written through";
}

TEST_F(DurableCopy, ALockedFileIsCopiedWholeOrItsTemporaryIsRemoved) {
  const std::string failed = "system 5: Could not copy locked release source: *, file 3";
  const FaultRow table[] = {
      {Call::CreateDirectoryW, 5,
       "filesystem 5: create_directories: *: \"C:\\t\", file 3, new 70000"},
      {Call::CreateFile2, 5,
       "system 80: Could not create target temporary file: *, file 3, new 70000"},
      {Call::ReadFile, 5, failed},
      {Call::WriteFile, 5, failed},
      {Call::FlushFileBuffers, 5, failed}};
  for (const FaultRow& row : table) {
    CreateFiles();
    computer.calls.ClearFaults();
    computer.calls.Inject({.call = row.call, .times = 2, .code = row.code});
    EXPECT_EQ(CopyLocked(), row.result) << CallName(row.call);
  }
  computer.calls.ClearFaults();
  const LockedReleaseFile file(kSource);
  const auto copy = [&] { CopyLockedFileToTemporary(file, kTemporary); };
  EXPECT_EQ(Result(copy), "done, file 3, new 65537");
  EXPECT_TRUE(computer.disk.ReadFile(kTemporary) == std::string(65537, 'n'));
  EXPECT_EQ(Result(copy), "done, file 3, new 0") << "the position is at the end";
}

TEST_F(DurableCopy, ATemporaryIsWrittenExclusivelyAndInFull) {
  RunWithHook(
      Call::FlushFileBuffers, [&] { EXPECT_FALSE(CanOpen(kTemporary, platform::kGenericRead)); },
      [&] { EXPECT_EQ(CopyLocked(), "done, file 3, new 65537"); });
  // A short write is a failure, with a code or without.
  Inject(Call::WriteFile, 0, {}, 1, 1, 65535);
  EXPECT_EQ(CopyLocked(), "system 29: Could not copy locked release source: *, file 3");
  Inject(Call::WriteFile, 0, {}, 2, 1, 0);
  RunWithHook(
      Call::WriteFile, [&] { computer.last_error = 112; },
      [&] {
        EXPECT_EQ(CopyLocked(), "system 112: Could not copy locked release source: *, file 3");
      });
}

TEST_F(DurableCopy, OnlyCopiesByPathTakeLongNamesAndAttributes) {
  const Path deep = u"C:\\" + Path(235, u'd') + u"\\" + Path(30, u'f');
  EXPECT_EQ(Thrown([&] { CopyFileDurably(kSource, deep, deep + u"n"); }), "done");
  EXPECT_EQ(Thrown([&] { CopyFileDurably(deep, kTarget, kTemporary); }), "done");
  EXPECT_EQ(Thrown([&] { CopyLockedFileToTemporary(LockedReleaseFile(kSource), deep); }),
            "system 3: Could not create target temporary file: *");

  // The copy of a read-only file can neither be flushed nor be removed by the next attempt.
  computer.disk.SetAttributes(kSource, platform::kFileAttributeReadonly);
  EXPECT_EQ(Copy(), "system 5: *, file 65537, new 65537");
  EXPECT_EQ(
      Copy(),
      "system 5: Could not remove stale backup or restore temporary: *, file 65537, new 65537");
}

}  // namespace
}  // namespace tolvarine::updater
