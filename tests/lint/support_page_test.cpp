// docs/support.md explains every text that the updater can show. This test reads the texts from the
// sources, so that a new or changed one fails until the page has it.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

namespace {

namespace fs = std::filesystem;

std::string ContentOf(const fs::path& file) {
  std::ifstream stream(file);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// The string literals of a source that are sentences: they begin with a capital letter and hold a
// blank. Adjacent literals are one text.
std::set<std::string> SentencesOf(std::string source) {
  static const std::regex kComment("//[^\n]*");
  static const std::regex kBetweenAdjacent("\"\\s*\n\\s*u?\"");
  static const std::regex kSentence("\"([A-Z](?:[^\"\\\\\n]|\\\\.)* (?:[^\"\\\\\n]|\\\\.)*)\"");
  source = std::regex_replace(source, kComment, "");
  source = std::regex_replace(source, kBetweenAdjacent, "");
  std::set<std::string> sentences;
  const std::sregex_iterator end;
  for (std::sregex_iterator match(source.begin(), source.end(), kSentence); match != end; ++match) {
    sentences.insert((*match)[1]);
  }
  return sentences;
}

// Texts of results that the main sequence drops, or of requests that it never makes.
const std::set<std::string> kNeverShown = {
    "Cleanup requires a completed rollback",
    "Installation cancelled before target mutation",
    "Malformed serialized managed deletion list",
    "Malformed serialized source inventory",
    "Pending update marker is missing",
    "Recovery policy requested baseline restoration",
    "Serialized managed deletion list exceeds 24 KiB",
    "Serialized managed deletion list has too many paths",
    "Serialized managed deletion list is not canonical",
    "Serialized source inventory exceeds 24 KiB",
    "Serialized source inventory has too many entries",
    "Serialized source inventory is not canonical",
    "Update marker finalized; transaction cleanup is deferred: ",
    "Update payload is not durably installed"};

TEST(SupportPage, ExplainsEveryTextThatTheUpdaterCanShow) {
  const fs::path root = TOLVARINE_ROOT;
  const std::string page = ContentOf(root / "docs/support.md");
  std::set<std::string> found;
  for (const char* layer : {"driver", "engine", "journal", "files", "lists", "text"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / "src" / layer)) {
      if (entry.path().extension() == ".cpp" || entry.path().extension() == ".h") {
        found.merge(SentencesOf(ContentOf(entry.path())));
      }
    }
  }
  EXPECT_GT(found.size(), 80u);
  for (const std::string& text : found) {
    if (kNeverShown.contains(text)) continue;
    EXPECT_NE(page.find(text), std::string::npos) << "docs/support.md lacks: " << text;
  }
  for (const std::string& text : kNeverShown) {
    EXPECT_TRUE(found.contains(text)) << "no source has: " << text;
  }
}

}  // namespace
