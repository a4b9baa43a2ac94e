// The rules of the house, checked on its sources: nothing looks up a floor, the system's headers
// stay behind the seam, files and functions stay within their sizes.

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
  for (const char* folder : {"src", "tools", "tests", "bench", "fuzz"}) {
    for (Source& source : SourcesBelow(folder)) sources.push_back(std::move(source));
  }
  return sources;
}

const std::vector<std::string> kFloors = {"platform", "text",   "lists", "files",
                                          "journal",  "engine", "driver"};

// The floor of a path that begins with a folder of src/, or -1.
int FloorOf(const std::string& path) {
  const std::string folder = path.substr(0, path.find('/'));
  const auto floor = std::ranges::find(kFloors, folder);
  return floor == kFloors.end() ? -1 : static_cast<int>(floor - kFloors.begin());
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

TEST(House, NoIncludeLooksUpAFloor) {
  for (const Source& source : SourcesBelow("src")) {
    const int floor = FloorOf(source.path.substr(4));
    ASSERT_GE(floor, 0) << source.path << " lies on no floor";
    for (const std::string& include : IncludesOf(source)) {
      EXPECT_LE(FloorOf(include), floor) << source.path << " includes " << include;
    }
  }
}

TEST(House, OnlyThePlatformKnowsWhichOneItIs) {
  for (const Source& source : SourcesBelow("src")) {
    const bool windows = source.path.starts_with("src/platform/windows/");
    const bool simulated = source.path.starts_with("src/platform/simulated/");
    for (const std::string& include : IncludesOf(source)) {
      EXPECT_TRUE(windows || include != "windows.h") << source.path;
      EXPECT_TRUE(simulated || include.find("platform/simulated/") == std::string::npos)
          << source.path << " includes " << include;
    }
  }
}

TEST(House, ShippedCodeIncludesNothingHeavy) {
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

TEST(House, FilesStayWithinTheirSizes) {
  constexpr std::size_t kSourceLimit = 500;
  constexpr std::size_t kHeaderLimit = 200;
  for (const Source& source : AllSources()) {
    const bool header = source.path.ends_with(".h");
    const std::string table = "_table";
    if (source.path.find(table) != std::string::npos) continue;  // Data, read off elsewhere.
    EXPECT_LE(source.lines.size(), header ? kHeaderLimit : kSourceLimit) << source.path;
  }
}

// --- Functions -----------------------------------------------------------------------------------

struct Function {
  std::string place;
  std::size_t length = 0;  // Lines, from its first to its closing brace.
};

// A line without comments and without what its literals hold. Literals do not span lines here.
std::string Bare(const std::string& line) {
  static const std::regex kLiteral(R"("(\\.|[^"\\])*"|'(\\.|[^'\\])+')");
  const std::string plain = std::regex_replace(line, kLiteral, "\"\"");
  return plain.substr(0, plain.find("//"));
}

// Finds functions by their braces: one opens where the statement before it ends in a parameter
// list, and what encloses it is no function.
class FunctionFinder {
 public:
  explicit FunctionFinder(const Source& source) : source_(source) {}

  std::vector<Function> Find() {
    for (line_ = 0; line_ < source_.lines.size(); ++line_) {
      const std::string bare = Bare(source_.lines[line_]);
      if (bare.starts_with("#")) continue;
      for (const char c : bare) Take(c);
      statement_ += ' ';
    }
    return functions_;
  }

 private:
  void Take(char c) {
    if (c == '{') return Open();
    if (c == '}') return Close();
    if (c == ';') return statement_.clear();
    if (statement_.find_first_not_of(' ') == std::string::npos) first_line_ = line_;
    statement_ += c;
  }

  void Open() {
    static const std::regex kNoFunction(
        R"(^\s*(inline\s+)?(namespace|class|struct|enum|union|extern)\b|=\s*$|^\s*$)");
    const bool opens_function = inside_ == 0 && statement_.find('(') != std::string::npos &&
                                !std::regex_search(statement_, kNoFunction);
    if (opens_function) {
      open_.push_back(first_line_);
    } else {
      open_.push_back(kNone);
    }
    if (opens_function || inside_ > 0) ++inside_;
    statement_.clear();
  }

  void Close() {
    statement_.clear();
    if (open_.empty()) return;
    if (open_.back() != kNone) {
      functions_.push_back(
          {source_.path + ":" + std::to_string(open_.back() + 1), line_ - open_.back() + 1});
    }
    open_.pop_back();
    if (inside_ > 0) --inside_;
  }

  static constexpr std::size_t kNone = ~std::size_t{0};
  const Source& source_;
  std::vector<Function> functions_;
  std::vector<std::size_t> open_;
  std::string statement_;
  std::size_t line_ = 0;
  std::size_t first_line_ = 0;
  std::size_t inside_ = 0;  // Braces open since the function's own.
};

std::vector<Function> FunctionsOf(const std::vector<Source>& sources) {
  std::vector<Function> functions;
  for (const Source& source : sources) {
    for (Function& function : FunctionFinder(source).Find())
      functions.push_back(std::move(function));
  }
  std::ranges::sort(functions, {}, &Function::length);
  return functions;
}

TEST(House, FunctionsAreFoundByTheirBraces) {
  const Source source{"x.cpp",
                      {"namespace a {", "struct B {", "  int c = 0;", "  int D() const {",
                       "    if (c) {", "    }", "    return c;", "  }", "};",
                       "const int kTable[] = {1, 2};", "void E(int x) { (void)x; }", "}"}};
  const std::vector<Function> functions = FunctionFinder(source).Find();
  ASSERT_EQ(functions.size(), 2u);
  EXPECT_EQ(functions[0].length, 5u);
  EXPECT_EQ(functions[1].length, 1u);
}

TEST(House, NoFunctionIsLong) {
  constexpr std::size_t kLimit = 70;
  for (const Function& function : FunctionsOf(AllSources())) {
    EXPECT_LE(function.length, kLimit) << function.place;
  }
}

TEST(House, FunctionsAreShortAsARule) {
  const std::vector<Function> functions = FunctionsOf(SourcesBelow("src"));
  ASSERT_GT(functions.size(), 100u);
  EXPECT_LE(functions[functions.size() / 2].length, 12u);
  EXPECT_LE(functions[functions.size() * 9 / 10].length, 40u);
}

}  // namespace
