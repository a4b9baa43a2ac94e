// docs/integration.md documents every name that the update tool gives to programs. This test reads
// the names from the sources.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;

using Names = std::set<std::string>;

std::string ContentOf(const char* file) {
  std::ifstream stream(fs::path(TOLVARINE_ROOT) / file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// What the first group of the expression matches.
Names Matches(const std::string& text, const std::regex& expression) {
  Names names;
  const std::sregex_iterator end;
  for (std::sregex_iterator match(text.begin(), text.end(), expression); match != end; ++match) {
    names.insert((*match)[1]);
  }
  return names;
}

// The names in the first column of the table that follows a text.
Names TableAfter(const std::string& page, const std::string& text) {
  const std::size_t begin = page.find("\n| ", page.find(text));
  return Matches(page.substr(begin, page.find("\n\n", begin) - begin),
                 std::regex("\n\\| `([a-z-]+)` \\|"));
}

TEST(IntegrationPage, DocumentsEveryNameThatProgramsRead) {
  const std::string page = ContentOf("docs/integration.md");
  const Names reasons = Matches(ContentOf("application/reasons/reason.h"),
                                std::regex(R"re(X\(\w+, "([a-z-]+)"\))re"));
  EXPECT_GT(reasons.size(), 20u);
  EXPECT_EQ(TableAfter(page, "The codes of reasons."), reasons);

  const Names states = Matches(ContentOf("application/state/workspace_state.h"),
                               std::regex(R"re(X\(\w+, "([a-z-]+)", \w+,)re"));
  EXPECT_GT(states.size(), 10u);
  EXPECT_EQ(TableAfter(page, "### States"), states);

  Names members = Matches(ContentOf("tools/update_tool/commands.cpp"),
                          std::regex(R"re((?:json\[|\{)"([a-z_]+)"[\],])re"));
  EXPECT_GT(members.size(), 20u);
  for (const std::string& name : members) {
    EXPECT_NE(page.find("`" + name + "`"), std::string::npos) << name;
  }
}

}  // namespace
