// Rules of this source tree that no compiler or formatter checks: the include order of the layers,
// the headers that the updater may not use, the sizes of files, the width of lines. clang-tidy
// checks the sizes of functions outside tests/; scripts/count-lines prints the longest of all.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

struct Source {
  std::string path;  // Relative to the tree.
  std::vector<std::string> lines;
};

std::vector<std::string> ReadLines(const fs::path& file) {
  std::ifstream stream(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

Source ReadSource(const fs::path& file) {
  return {fs::relative(file, TOLVARINE_ROOT).generic_string(), ReadLines(file)};
}

const std::vector<std::string> kFolders = {"src",     "application", "tools",
                                           "testbed", "tests",       "bench"};

bool IsCpp(const fs::path& file) { return file.extension() == ".cpp" || file.extension() == ".h"; }

// All files of a folder whose path satisfies the predicate.
std::vector<Source> SourcesIn(const std::string& folder, bool (*accepts)(const fs::path&) = IsCpp) {
  std::vector<Source> sources;
  for (const auto& entry : fs::recursive_directory_iterator(fs::path(TOLVARINE_ROOT) / folder)) {
    if (entry.is_regular_file() && accepts(entry.path())) {
      sources.push_back(ReadSource(entry.path()));
    }
  }
  return sources;
}

const std::vector<std::string> kLayers = {"platform", "text",   "lists", "files",
                                          "journal",  "engine", "driver"};

// The layer of a path that begins with a folder of src/, or -1.
int LayerOf(const std::string& path) {
  const std::string folder = path.substr(0, path.find('/'));
  const auto layer = std::ranges::find(kLayers, folder);
  return layer == kLayers.end() ? -1 : static_cast<int>(layer - kLayers.begin());
}

// The names that a source includes, in quotes or in angle brackets.
std::vector<std::string> IncludesOf(const Source& source) {
  static const std::regex kInclude(R"(^\s*#\s*include\s*[<"]([^>"]+)[>"])");
  std::vector<std::string> includes;
  for (const std::string& line : source.lines) {
    std::smatch match;
    if (std::regex_search(line, match, kInclude)) includes.push_back(match[1]);
  }
  return includes;
}

TEST(Lint, NoFileIncludesAHigherLayer) {
  for (const Source& source : SourcesIn("src")) {
    const int layer = LayerOf(source.path.substr(4));
    ASSERT_GE(layer, 0) << source.path << " belongs to no layer";
    for (const std::string& include : IncludesOf(source)) {
      EXPECT_LE(LayerOf(include), layer) << source.path << " includes " << include;
    }
  }
}

TEST(Lint, OnlyTheWindowsPlatformIncludesTheSystemsHeader) {
  for (const char* folder : {"src", "application", "tools"}) {
    for (const Source& source : SourcesIn(folder)) {
      const bool windows = source.path.find("/windows/") != std::string::npos ||
                           source.path == "tools/update_tool/console.cpp";
      for (const std::string& include : IncludesOf(source)) {
        EXPECT_TRUE(windows || include != "windows.h") << source.path;
        EXPECT_EQ(include.find("simulated_windows/"), std::string::npos) << source.path;
      }
    }
  }
}

TEST(Lint, TheUpdaterIncludesNoHeaderThatAddsMuchCode) {
  const std::map<std::string, std::string> instead = {
      {"iostream", "a platform call"},
      {"sstream", "text/decimal.h and appends"},
      {"fstream", "files/"},
      {"regex", "a parser of its own"},
      {"filesystem", "text/path_algebra.h and files/file_operations.h"},
      {"locale", "platform/text.h"},
      {"iomanip", "text/decimal.h"}};
  for (const Source& source : SourcesIn("src")) {
    for (const std::string& include : IncludesOf(source)) {
      const auto banned = instead.find(include);
      EXPECT_EQ(banned, instead.end())
          << source.path << " includes <" << include << ">; use " << banned->second;
    }
  }
}

TEST(Lint, FilesStayWithinTheirSizes) {
  constexpr std::size_t kSourceLimit = 500;
  constexpr std::size_t kHeaderLimit = 200;
  for (const std::string& folder : kFolders) {
    for (const Source& source : SourcesIn(folder)) {
      if (source.path.find("_table") != std::string::npos) continue;  // Data of the system.
      const std::size_t limit = source.path.ends_with(".h") ? kHeaderLimit : kSourceLimit;
      EXPECT_LE(source.lines.size(), limit) << source.path;
    }
  }
}

// In characters: the bytes of UTF-8 that are not continuation bytes.
std::size_t WidthOf(const std::string& line) {
  return static_cast<std::size_t>(
      std::ranges::count_if(line, [](char c) { return (c & 0xC0) != 0x80; }));
}

void ExpectWidths(const Source& source) {
  constexpr std::size_t kWidthLimit = 100;
  for (std::size_t i = 0; i < source.lines.size(); ++i) {
    EXPECT_LE(WidthOf(source.lines[i]), kWidthLimit) << source.path << ":" << i + 1;
  }
}

// clang-format checks the width of code, but not that of comments.
TEST(Lint, LinesStayWithinTheirWidth) {
  const auto is_source = [](const fs::path& file) {
    return IsCpp(file) || file.filename() == "CMakeLists.txt" || file.extension() == ".cmake" ||
           file.extension() == ".sh" || file.extension().empty();
  };
  ExpectWidths(ReadSource(fs::path(TOLVARINE_ROOT) / "CMakeLists.txt"));
  for (const char* folder :
       {"src", "tools", "testbed", "tests", "bench", "cmake", "scripts", ".ci"}) {
    for (const Source& source : SourcesIn(folder, is_source)) ExpectWidths(source);
  }
}

}  // namespace
