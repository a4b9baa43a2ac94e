#include "files/durable_copy.h"

#include <optional>

#include "files/file_fixture.h"

namespace tolvarine::updater {
namespace {

const Path kSource = u"C:\\s\\source";
const Path kTarget = u"C:\\t\\file";
const Path kTemporary = u"C:\\t\\new";

class DurableCopy : public FileFixture {
 protected:
  DurableCopy() { CreateFiles(); }

  // A source of more than one block, an old file, and a stale temporary.
  void CreateFiles() {
    computer.disk.WriteFile(kSource, std::string(65537, 'n'));
    computer.disk.WriteFile(kTarget, "old");
    computer.disk.WriteFile(kTemporary, "stale");
    computer.disk.SetAttributes(kSource, platform::kFileAttributeArchive);
  }

  // What it throws, and the sizes of what then stands at the target and beside it.
  std::string Left(const std::string& thrown) {
    std::string words = thrown;
    for (const auto& [name, content] : computer.disk.Tree(u"C:\\t")) {
      words += ", " + Shown(name) + " " + std::to_string(content.size());
    }
    return words;
  }
  std::string Copy() {
    return Left(Thrown([] { CopyFileDurably(kSource, kTarget, kTemporary); }));
  }
  std::string CopyLocked(const LockedReleaseFile& file = LockedReleaseFile(kSource)) {
    return Left(Thrown([&] { CopyLockedFileToTemporary(file, kTemporary); }));
  }
};

TEST_F(DurableCopy, ACopyReplacesItsDestinationInTheLastStepOrLeavesIt) {
  EXPECT_EQ(FailingEachCall([&] { CreateFiles(); }, [&] { return Copy(); }), R"(
CreateDirectoryW t: system 5: Could not create backup or restore directory: *, file 3, new 5
GetFileAttributesExW t: system 5: Could not create backup or restore directory: *, file 3, new 5
DeleteFileW new: system 5: Could not remove stale backup or restore temporary: *, file 3, new 5
CopyFileW source: system 5: Could not copy backup or restore temporary: *, file 3
CreateFileW new: system 5: *, file 3, new 65537
FlushFileBuffers new: system 5: *, file 3, new 65537
CloseHandle new: done, file 65537
MoveFileExW new: system 5: *, file 3, new 65537
in peace: done, file 65537
)");
  EXPECT_EQ(computer.disk.ReadFile(kTarget), std::string(65537, 'n'));
  EXPECT_TRUE(computer.disks.volume(u'C').unforced().empty()) << "not written through";
  for (const std::uint32_t absent : {2u, 3u}) {
    computer.disk.WriteFile(kTemporary, std::string(70'000, 's'));
    Inject(Call::DeleteFileW, absent);
    EXPECT_EQ(Copy(), "done, file 65537") << "what is there after all is overwritten";
  }
  computer.disk.Remove(u"C:\\t");
  EXPECT_EQ(Copy(), "done, file 65537");
}

TEST_F(DurableCopy, ALockedFileIsCopiedWholeOrItsTemporaryGoes) {
  std::optional<LockedReleaseFile> file;
  const auto prepare = [&] {
    file.reset();
    CreateFiles();
    file.emplace(kSource);
  };
  EXPECT_EQ(FailingEachCall(prepare, [&] { return CopyLocked(*file); }), R"(
CreateDirectoryW t: filesystem 5: create_directories: *: "C:\t", file 3, new 5
GetFileAttributesExW t: filesystem 5: create_directories: *: "C:\t", file 3, new 5
CreateFile2 new: done, file 3, new 65537
SetFileInformationByHandle new: system 80: Could not create target temporary file: *, file 3, new 5
CloseHandle new: done, file 3, new 65537
CreateFileW new: system 5: Could not create target temporary file: *, file 3
ReadFile source: system 5: Could not copy locked release source: *, file 3
WriteFile new: system 5: Could not copy locked release source: *, file 3
ReadFile source: system 5: Could not copy locked release source: *, file 3
WriteFile new: system 5: Could not copy locked release source: *, file 3
ReadFile source: system 5: Could not copy locked release source: *, file 3
FlushFileBuffers new: system 5: Could not copy locked release source: *, file 3
CloseHandle new: done, file 3, new 65537
in peace: done, file 3, new 65537
)");
  EXPECT_EQ(computer.disk.ReadFile(kTemporary), std::string(65537, 'n'));
  EXPECT_EQ(computer.disks.volume(u'C').UnflushedFiles().size(), 2u) << "the source and the target";
  EXPECT_EQ(CopyLocked(*file), "done, file 3, new 0") << "the position is at the end";
}

TEST_F(DurableCopy, ATemporaryIsWrittenExclusivelyAndInFull) {
  Before(Call::FlushFileBuffers, [&] { EXPECT_FALSE(IsFree(kTemporary, platform::kGenericRead)); });
  EXPECT_EQ(CopyLocked(), "done, file 3, new 65537");
  // A short write is a failure, with a code or without.
  Inject(Call::WriteFile, 0, {}, 1, 1, 65535);
  EXPECT_EQ(CopyLocked(), "system 29: Could not copy locked release source: *, file 3");
  Before(Call::WriteFile, [&] { computer.last_error = 112; });
  Inject(Call::WriteFile, 0, {}, 2, 1, 0);
  EXPECT_EQ(CopyLocked(), "system 112: Could not copy locked release source: *, file 3");
}

TEST_F(DurableCopy, DisksAttributesAndLongNamesEndACopyInTheirWays) {
  computer.disks.volume(u'C').capacity = 65537 + 1000;
  EXPECT_EQ(Copy(), "system 112: Could not copy backup or restore temporary: *, file 3");
  EXPECT_EQ(CopyLocked(), "system 112: Could not copy locked release source: *, file 3");
  computer.disks.volume(u'C').capacity = ~std::uint64_t{0};

  const Path deep = u"C:\\" + Path(235, u'd') + u"\\" + Path(30, u'f');
  EXPECT_EQ(Thrown([&] { CopyFileDurably(kSource, deep, deep + u"n"); }), "done");
  EXPECT_EQ(Thrown([&] { CopyFileDurably(deep, kTarget, kTemporary); }), "done");
  EXPECT_EQ(Thrown([&] { CopyLockedFileToTemporary(LockedReleaseFile(kSource), deep); }),
            "system 3: Could not create target temporary file: *");

  // Attributes travel: the copy cannot be flushed, nor removed by the next attempt.
  computer.disk.SetAttributes(kSource, platform::kFileAttributeReadonly);
  EXPECT_EQ(Copy(), "system 5: *, file 65537, new 65537");
  EXPECT_EQ(
      Copy(),
      "system 5: Could not remove stale backup or restore temporary: *, file 65537, new 65537");
}

}  // namespace
}  // namespace tolvarine::updater
