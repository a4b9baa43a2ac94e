// What both lists promise of their texts, for the tests of each.

#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "support/failure_of.h"
#include "support/simulated_fixture.h"

namespace tolvarine::updater {

// SHA-256 of "abc".
inline const std::string kAbc = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

inline constexpr char kBadUtf8[] =
    "No mapping for the Unicode character exists in the target multi-byte code page.";

template <typename List>
struct ListText {
  bool (*parse)(std::string_view, List&, std::string*);
  std::string (*serialize)(const List&);

  // The error for a text; empty if it is accepted. An accepted text is what its list is serialized
  // as, and a refused one leaves the list unchanged.
  std::string Refusal(std::string_view text) const {
    constexpr std::size_t kUnchanged = 3;
    List list(kUnchanged);
    std::string error = "of an earlier list";
    const bool accepted = parse(text, list, &error);
    EXPECT_EQ(accepted, error.empty()) << error;
    EXPECT_TRUE(accepted ? serialize(list) == text : list.size() == kUnchanged) << text;
    return error;
  }

  // Each error, with texts that are refused with it.
  void ExpectRefusals(const std::map<std::string, std::vector<std::string>>& table) const {
    for (const auto& [error, texts] : table) {
      for (const std::string& text : texts) EXPECT_EQ(Refusal(text), error) << text;
    }
  }
};

}  // namespace tolvarine::updater
