#include "driver/command_line.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "simulated_windows/computer.h"
#include "support/text_printers.h"

namespace tolvarine::updater {
namespace {

// Names without their dashes. A null value omits the option.
using Text = const char16_t*;
using Options = std::vector<std::pair<std::u16string, Text>>;

constexpr char16_t kId[] = u"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
constexpr char16_t kKey[] = u"0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
const std::u16string kRow = std::u16string(u"546f6c766172696e652e657865:1:") + kId + u"\n";
const std::u16string kInventory = u"I1\n" + kRow;  // Tolvarine.exe, of 1 byte.

Options Acceptable() {
  return {{u"source", u"C:\\s"},         {u"target", u"C:\\t"},
          {u"restart", u"app.exe"},      {u"state-file", u"C:\\p"},
          {u"completed-file", u"C:\\c"}, {u"installed-manifest-file", u"C:\\m"},
          {u"workspace", u"C:\\w"},      {u"update-id", kId},
          {u"install-key", kKey},        {u"source-inventory", kInventory.c_str()},
          {u"wait-pid", u"7"},           {u"wait-process-created-at", u"5"}};
}

Options With(const Options& changes) {
  Options options = Acceptable();
  for (const auto& change : changes) {
    std::erase_if(options, [&](const auto& option) { return option.first == change.first; });
    if (change.second != nullptr) options.push_back(change);
  }
  return options;
}

bool Parses(const Options& options, UpdaterArguments& arguments) {
  simulated::Computer computer;
  computer.MakeCurrent();
  std::vector<std::u16string> texts = {u"updater.exe"};
  for (const auto& [name, value] : options) {
    texts.push_back(u"--" + name);
    texts.emplace_back(value);
  }
  std::vector<Text> vector;
  for (const std::u16string& text : texts) vector.push_back(text.c_str());
  return ParseArguments(static_cast<std::int32_t>(vector.size()), vector.data(), arguments);
}

bool Accepts(const Options& options) {
  UpdaterArguments arguments;
  return Parses(options, arguments);
}

TEST(CommandLineTest, EveryOptionFillsItsFieldInAnyOrder) {
  Options options = With({{u"managed-deletions", u"D1\n61\n"}});
  std::ranges::reverse(options);
  UpdaterArguments a;
  ASSERT_TRUE(Parses(options, a));
  EXPECT_EQ(a.source + a.target + a.restart + a.state_file, u"C:\\sC:\\tapp.exeC:\\p");
  EXPECT_EQ(a.completed_file + a.installed_manifest_file + a.workspace, u"C:\\cC:\\mC:\\w");
  EXPECT_EQ(a.update_id + a.install_key, std::u16string(kId) + kKey);
  EXPECT_EQ(a.source_inventory.at(0).path, u"Tolvarine.exe");
  EXPECT_EQ(a.managed_deletions, ManagedDeletionList{u"a"});
  EXPECT_EQ(a.wait_pid, 7u);
  EXPECT_EQ(a.wait_process_created_at, 5u);
  EXPECT_TRUE(a.has_wait_process_created_at);
}

TEST(CommandLineTest, EveryRequiredOptionIsNeededOnceAndNotEmpty) {
  for (const auto& [name, value] : Acceptable()) {
    EXPECT_FALSE(Accepts(With({{name, nullptr}}))) << Shown(name);
    EXPECT_FALSE(Accepts(With({{name, u""}}))) << Shown(name);
    Options repeated = Acceptable();
    repeated.emplace_back(name, value);
    EXPECT_FALSE(Accepts(repeated)) << Shown(name);
  }
}

TEST(CommandLineTest, ValuesAreCheckedStrictly) {
  const std::u16string wide_header = u'\u0149' + kInventory.substr(1);  // 'I' in its low byte.
  const std::u16string key(kKey);
  const auto accepts = [](const std::u16string& name, const std::u16string& value) {
    return Accepts(With({{name, value.c_str()}}));
  };
  EXPECT_TRUE(accepts(u"source", u"--target"));
  EXPECT_TRUE(accepts(u"managed-deletions", u"D1\n"));
  EXPECT_FALSE(accepts(u"managed-deletions", u""));
  EXPECT_FALSE(accepts(u"managed-deletions", u"D1\n\u0080"));
  EXPECT_FALSE(accepts(u"managed-deletions", u"D1\n\u0136\u0131\n"));  // "61" in the low bytes.
  EXPECT_FALSE(accepts(u"source-inventory", wide_header));
  EXPECT_FALSE(accepts(u"source-inventory", u"I1\n"));
  EXPECT_FALSE(accepts(u"update-id", key.substr(1)));
  EXPECT_FALSE(accepts(u"update-id", key + u"0"));
  EXPECT_FALSE(accepts(u"update-id", key.substr(1) + u"F"));
  EXPECT_FALSE(accepts(u"install-key", key.substr(1) + u"g"));
  for (Text unknown : {u"SOURCE", u"source=C:\\s", u"sourc", u""}) {
    EXPECT_FALSE(accepts(unknown, u"x")) << Shown(unknown);
  }
}

TEST(CommandLineTest, AListOf24576UnitsIsAccepted) {
  simulated::Computer computer;
  computer.MakeCurrent();
  ManagedDeletionList paths;
  for (char16_t name = u'a'; name < u'm'; ++name) paths.emplace_back(1023, name);
  paths.push_back(u"four");
  const std::string list = SerializeManagedDeletionList(paths);
  ASSERT_EQ(list.size(), 24576u);
  const std::u16string value(list.begin(), list.end());
  EXPECT_TRUE(Accepts(With({{u"managed-deletions", value.c_str()}})));
}

TEST(CommandLineTest, ProcessNeedsItsCreationTime) {
  const auto wait = [](Text pid, Text created) {
    UpdaterArguments arguments;
    const bool parses =
        Parses(With({{u"wait-pid", pid}, {u"wait-process-created-at", created}}), arguments);
    return parses ? std::optional(arguments.wait_pid) : std::nullopt;
  };
  EXPECT_EQ(wait(u"0", nullptr), 0u);
  EXPECT_EQ(wait(u"0x7", nullptr), 0u);
  EXPECT_EQ(wait(u"123abc", u"5"), 123u);
  EXPECT_EQ(wait(u" \t+7", u"18446744073709551615"), 7u);
  EXPECT_EQ(wait(u"4294967295", u"5"), 0xFFFFFFFF);
  EXPECT_EQ(wait(u"-1", u"5"), 0xFFFFFFFF);
  const std::pair<Text, Text> refused[] = {{u"0", u"5"},
                                           {u"0", u"0"},
                                           {nullptr, nullptr},
                                           {u"7", nullptr},
                                           {u"7", u"0"},
                                           {u"abc", u"5"},
                                           {u"4294967296", u"5"},
                                           {u"7", u"a"},
                                           {u"7", u"5a"},
                                           {u"7", u"5 "},
                                           {u"7", u"18446744073709551616"}};
  for (const auto& [pid, created] : refused) {
    EXPECT_EQ(wait(pid, created), std::nullopt)
        << (pid ? Shown(pid) : "-") << " " << (created ? Shown(created) : "-");
  }
}

}  // namespace
}  // namespace tolvarine::updater
