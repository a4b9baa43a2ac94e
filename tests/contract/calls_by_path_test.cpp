// Every call that takes a path, on every kind of path.

#include <array>
#include <iterator>
#include <optional>

#include "contract/fixture.h"
#include "platform/streams.h"

namespace tolvarine::updater::contract {
namespace {

std::uint32_t CodeOfSearch(const Path& pattern, bool all) {
  FindData data;
  const Handle search =
      all ? FindFirstFileExW(pattern.c_str(), kFindExInfoBasic, &data, kFindExSearchNameMatch, 0)
          : FindFirstFileW(pattern.c_str(), &data);
  return search == kInvalidHandle ? GetLastError() : Code(FindClose(search));
}

// 1 where it cannot be opened: a stream has no code.
std::uint32_t CodeOfStream(const Path& path, const char16_t* mode) {
  Stream* const stream = _wfsopen(path.c_str(), mode, kShDenyNo);
  if (stream != nullptr) fclose(stream);
  return stream != nullptr ? 0 : 1;
}

// The calls as the program makes them, with the path that is tested.
struct PathCall {
  std::string_view name;
  std::uint32_t (*code)(const Path& path, const Path& root);
};

#define TOLVARINE_CALL(code) \
  [](const Path& p, [[maybe_unused]] const Path& root) -> std::uint32_t { return (code); }

constexpr PathCall kCalls[] = {
    {"attributes", TOLVARINE_CALL(Code(~Attributes(p) != 0))},
    {"query", TOLVARINE_CALL(File(Open(p, kFileReadAttributes)).code)},
    {"removal", TOLVARINE_CALL(File(OpenForRemoval(p)).code)},
    {"lock", TOLVARINE_CALL(File(p, kGenericRead, kFileShareRead, kOpenExisting, 0x08200080).code)},
    {"flush", TOLVARINE_CALL(File(p, kReadAndWrite, kFileShareRead).code)},
    {"new", TOLVARINE_CALL(File(p, kGenericWrite, kFileShareNone, kCreateNew).code)},
    {"log", TOLVARINE_CALL(File(p, kFileAppendData, kFileShareAll, kOpenAlways).code)},
    {"rb", TOLVARINE_CALL(CodeOfStream(p, u"rb"))},
    {"wb", TOLVARINE_CALL(CodeOfStream(p, u"wb"))},
    {"copy", TOLVARINE_CALL(Code(CopyFileW(p.c_str(), (root + u"\\new").c_str(), false)))},
    {"copy onto", TOLVARINE_CALL(Code(CopyFileW((root + u"\\other").c_str(), p.c_str(), false)))},
    {"rename", TOLVARINE_CALL(Rename(p, root + u"\\new"))},
    {"rename onto", TOLVARINE_CALL(Rename(root + u"\\other", p))},
    {"delete", TOLVARINE_CALL(Code(DeleteFileW(p.c_str())))},
    {"mkdir", TOLVARINE_CALL(Code(CreateDirectoryW(p.c_str())))},
    {"list", TOLVARINE_CALL(CodeOfSearch(p + u"\\*", true))},
    {"find", TOLVARINE_CALL(CodeOfSearch(p, false))},
};

// A code, and what some versions of Wine answer instead, to the host's root and to other users.
struct Answer {
  constexpr Answer(std::uint32_t code) : Answer(code, kWine8And10, code, code) {}
  constexpr Answer(std::uint32_t code, WineVersions gap, std::uint32_t on_wine,
                   std::uint32_t on_wine_as_root)
      : windows(code), versions(gap), wine(on_wine), wine_as_root(on_wine_as_root) {}

  [[nodiscard]] std::uint32_t Here() const {
    if (!OnWine(versions)) return windows;
    return RunsAsHostRoot() ? wine_as_root : wine;
  }

  std::uint32_t windows;
  WineVersions versions;
  std::uint32_t wine, wine_as_root;
};

// A search in a file, and a search for a name that is not possible.
constexpr Answer kNoDir = {267, kWine8, 123, 123};
constexpr Answer kIllegal = {123, kWine8And10, 2, 2};
// On Wine the host's root can write to a read-only file; others cannot even change its attributes.
constexpr Answer kReadOnly = {5, kWine8And10, 5, 0};
constexpr Answer kReadOnlyStream = {1, kWine8And10, 1, 0};
constexpr Answer kReadOnlyRemoval = {0, kWine8And10, 5, 0};
constexpr Answer kReplaced = {5, kWine8, 0, 0};
// On Wine a file that is marked for deletion can still be opened.
constexpr Answer kMarked = {5, kWine8And10, 0, 0};
constexpr Answer kMarkedStream = {1, kWine8And10, 0, 0};
constexpr Answer kMarkedNew = {5, kWine8And10, 80, 80};

// A path, and the answers of the calls in the order of kCalls. A tilde means the extended
// prefix.
struct PathRow {
  std::u16string_view name;
  std::array<Answer, std::size(kCalls)> answers;
  // The access and sharing with which another handle has the file open, if there is one.
  std::uint32_t access = 0;
  std::uint32_t sharing = 0;
};

constexpr PathRow kRows[] = {
    // attributes, query; removal, lock, flush, new, log, rb, wb (opens); copy, copy onto, rename,
    // rename onto, delete; mkdir; list, find (searches)
    {u"FILE", {0, 0, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 0, 0, 183, kNoDir, 0}},
    {u"empty/..\\.\\file.", {0, 0, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 0, 0, 183, kNoDir, 0}},
    {u"read-only",
     {0, 0, kReadOnlyRemoval, 0, kReadOnly, 80, kReadOnly, 0, kReadOnlyStream, 0, kReadOnly, 0,
      kReplaced, 5, 183, kNoDir, 0}},
    {u"empty", {0, 0, 0, 5, 5, 80, 5, 1, 1, 5, 5, 0, 5, 5, 183, 0, 0}},
    {u"directory\\", {0, 0, 0, 5, 5, 80, 5, 1, 1, 5, 5, 0, 5, 5, 183, 0, 2}},
    {u"missing", {2, 2, 2, 2, 2, 0, 0, 1, 0, 2, 0, 2, 0, 2, 0, 3, 2}},
    {u"missing\\name", {3, 3, 3, 3, 3, 3, 3, 1, 1, 3, 3, 3, 3, 3, 3, 3, 3}},
    {u"file\\name", {3, 3, 3, 3, 3, 3, 3, 1, 1, 3, 3, 3, 3, 3, 3, 3, kNoDir}},
    {u"a\1b",
     {123, 123, 123, 123, 123, 123, 123, 1, 1, 123, 123, 123, 123, 123, 123, 123, kIllegal}},
    {u"~file", {0, 0, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 0, 0, 183, kNoDir, 0}},
    {u"~empty/file",
     {123, 123, 123, 123, 123, 123, 123, 1, 1, 123, 123, 123, 123, 123, 123, 123, kIllegal}},
    {u"~empty\\..\\file",
     {123, 123, 123, 123, 123, 123, 123, 1, 1, 123, 123, 123, 123, 123, 123, 123, 123}},
    {u"read", {0, 0, 32, 32, 32, 80, 32, 1, 1, 32, 32, 32, 5, 32, 183, kNoDir, 0}, kGenericRead, 0},
    {u"locked", {0, 0, 32, 0, 32, 80, 32, 0, 1, 0, 32, 32, 5, 32, 183, kNoDir, 0}, kGenericRead, 1},
    {u"stream", {0, 0, 32, 0, 0, 80, 0, 0, 0, 0, 0, 32, 5, 32, 183, kNoDir, 0}, kGenericRead, 3},
    {u"shared", {0, 0, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 5, 0, 183, kNoDir, 0}, kGenericRead, 7},
    {u"written", {0, 0, 0, 32, 32, 80, 0, 0, 0, 0, 0, 0, 5, 0, 183, kNoDir, 0}, kGenericWrite, 7},
    {u"seen", {0, 0, 0, 0, 0, 80, 0, 0, 0, 0, 0, 0, 5, 0, 183, kNoDir, 0}, kFileReadAttributes, 0},
    {u"marked",  // For deletion.
     {kMarked, kMarked, kMarked, kMarked, kMarked, kMarkedNew, kMarked, kMarkedStream,
      kMarkedStream, kMarked, kMarked, kMarked, 5, kMarked, 183, kNoDir, 0},
     kGenericRead,
     7},
};

class CallsByPathTest : public ContractTest {
 protected:
  // A new directory with the files that the paths name.
  void CreateFiles(const PathRow& row) {
    held_.reset();
    scratch_ = {};
    scratch_ = MakeScratch();
    for (const auto* name : {u"empty", u"directory"}) CreateDirectoryW(At(name).c_str());
    for (const auto* name : {u"file", u"other", u"read-only"}) Put(At(name), "old");
    SetAttributes(At(u"read-only"), kFileAttributeReadonly);
    Put(At(u"directory\\inner"), "old");
    if (row.access == 0) return;
    Put(At(row.name), "old");
    held_.emplace(At(row.name), row.access, row.sharing);
    if (row.name == u"marked") Mark(At(row.name));
  }

  std::optional<File> held_;
};

TEST_F(CallsByPathTest, EveryCallAnswersWithItsCode) {
  for (const PathRow& row : kRows) {
    CreateFiles(row);
    for (std::size_t i = 0; i < std::size(kCalls); ++i) {
      const bool extended = row.name.starts_with(u'~');
      const Path path = extended ? u"\\\\?\\" + At(row.name.substr(1)) : At(row.name);
      const std::uint32_t code = kCalls[i].code(path, root());
      EXPECT_EQ(code, row.answers[i].Here()) << Shown(row.name) << ", " << kCalls[i].name;
      // A call that fails changes nothing, so that the next one finds the same files.
      if (code == 0) CreateFiles(row);
    }
  }
}

}  // namespace
}  // namespace tolvarine::updater::contract
