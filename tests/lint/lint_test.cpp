// Rules of this source tree that no compiler or formatter checks: no file includes a higher layer,
// the system's headers stay behind the seam, files stay within their sizes. The length of functions
// is a rule of .clang-tidy.

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

std::vector<Source> SourcesBelow(const std::string& folder) {
  const fs::path root = TOLVARINE_ROOT;
  std::vector<Source> sources;
  for (const auto& entry : fs::recursive_directory_iterator(root / folder)) {
    const std::string extension = entry.path().extension().string();
    if (extension != ".cpp" && extension != ".h") continue;
    sources.push_back({fs::relative(entry.path(), root).generic_string(), ReadLines(entry.path())});
  }
  return sources;
}

std::vector<Source> AllSources() {
  std::vector<Source> sources;
  for (const char* folder : {"src", "tools", "testbed", "tests", "bench"}) {
    for (Source& source : SourcesBelow(folder)) sources.push_back(std::move(source));
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

// What a source includes, in quotes or in angle brackets.
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
  for (const Source& source : SourcesBelow("src")) {
    const int layer = LayerOf(source.path.substr(4));
    ASSERT_GE(layer, 0) << source.path << " lies on no layer";
    for (const std::string& include : IncludesOf(source)) {
      EXPECT_LE(LayerOf(include), layer) << source.path << " includes " << include;
    }
  }
}

TEST(Lint, OnlyThePlatformKnowsWhichOneItIs) {
  for (const Source& source : SourcesBelow("src")) {
    const bool windows = source.path.starts_with("src/platform/windows/");
    for (const std::string& include : IncludesOf(source)) {
      EXPECT_TRUE(windows || include != "windows.h") << source.path;
      EXPECT_EQ(include.find("simulated_windows/"), std::string::npos) << source.path;
    }
  }
}

TEST(Lint, ShippedCodeIncludesNothingHeavy) {
  const std::map<std::string, std::string> instead = {
      {"iostream", "a platform call"},
      {"sstream", "text/decimal.h and appends"},
      {"fstream", "files/"},
      {"regex", "a parser of its own"},
      {"filesystem", "text/path_algebra.h and files/file_operations.h"},
      {"locale", "platform/text.h"},
      {"iomanip", "text/decimal.h"}};
  for (const Source& source : SourcesBelow("src")) {
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
  for (const Source& source : AllSources()) {
    const bool header = source.path.ends_with(".h");
    const std::string table = "_table";
    if (source.path.find(table) != std::string::npos) continue;  // Data, read off elsewhere.
    EXPECT_LE(source.lines.size(), header ? kHeaderLimit : kSourceLimit) << source.path;
  }
}

}  // namespace
