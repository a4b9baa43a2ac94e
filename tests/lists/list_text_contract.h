// What both lists promise of their texts, for the tests of each.

#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/simulated_fixture.h"

namespace tolvarine::updater {

// SHA-256 of "abc".
inline const std::string kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

inline constexpr char kBadUtf8[] =
    "No mapping for the Unicode character exists in the target multi-byte code page.";

// The words of whatever an action throws; empty where it throws nothing.
template <typename Action>
std::string Words(Action action) {
  try {
    static_cast<void>(action());
    return {};
  } catch (const std::runtime_error& failure) {
    return failure.what();
  }
}

template <typename List>
struct ListText {
  bool (*parse)(std::string_view, List&, std::string*);
  std::string (*serialize)(const List&);

  // The words of a refusal; empty where the text is taken. A taken text is the one spelling of its
  // list, and a refused one leaves the list alone.
  std::string Refusal(std::string_view text) const {
    constexpr std::size_t kUntouched = 3;
    List list(kUntouched);
    std::string error = "of an earlier list";
    const bool taken = parse(text, list, &error);
    EXPECT_EQ(taken, error.empty()) << error;
    EXPECT_TRUE(taken ? serialize(list) == text : list.size() == kUntouched) << text;
    return error;
  }

  // A table of words, each with the texts that are refused with them.
  void ExpectRefusals(const std::map<std::string, std::vector<std::string>>& table) const {
    for (const auto& [words, texts] : table) {
      for (const std::string& text : texts) EXPECT_EQ(Refusal(text), words) << text;
    }
  }

  void ExpectOneSpellingUnderMutations(const std::string& good) const {
    for (std::size_t at = 0; at < good.size(); ++at) {
      for (int byte = 0; byte < 256; ++byte) {
        Refusal(std::string(good).replace(at, 1, 1, static_cast<char>(byte)));
      }
      Refusal(std::string(good).erase(at, 1));
      Refusal(std::string(good).insert(at, 1, good[at]));
    }
  }
};

}  // namespace tolvarine::updater
