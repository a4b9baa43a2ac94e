#include "release/strict_json.h"

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr std::uint64_t kLargestNumber = std::uint64_t{1} << 53;

// A text from outside as it may stand in a sentence: escaped, and not at any length.
std::string Shown(const Json& text) {
  constexpr std::size_t kLimit = 80;
  std::string shown = text.dump();
  return shown.size() <= kLimit ? shown : "of " + std::to_string(shown.size()) + " bytes";
}

// Follows the parser and refuses what it would accept: it keeps the last of two equal names.
class StrictRules {
 public:
  explicit StrictRules(JsonLimits limits) : limits_(limits) {}

  void Check(int depth, Json::parse_event_t event, const Json& value) {
    switch (event) {
      case Json::parse_event_t::object_start:
      case Json::parse_event_t::array_start:
        if (static_cast<std::size_t>(depth) >= limits_.depth) {
          throw std::runtime_error("arrays and objects are nested too deep");
        }
        CountValue();
        names_.emplace_back();
        break;
      case Json::parse_event_t::object_end:
      case Json::parse_event_t::array_end:
        names_.pop_back();
        break;
      case Json::parse_event_t::key:
        if (!names_.back().insert(value.get<std::string>()).second) {
          throw std::runtime_error("the name " + Shown(value) + " occurs twice");
        }
        break;
      case Json::parse_event_t::value:
        CountValue();
        CheckNumber(value);
        break;
    }
  }

 private:
  // A value takes some hundred bytes of memory, and some of them two bytes of text.
  void CountValue() {
    if (++values_ > limits_.values) {
      throw std::runtime_error("it has more than " + std::to_string(limits_.values) + " values");
    }
  }

  static void CheckNumber(const Json& value) {
    if (!value.is_number()) return;
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > kLargestNumber) {
      throw std::runtime_error("the number " + value.dump() +
                               " is not a whole number from 0 to 2^53");
    }
  }

  JsonLimits limits_;
  std::size_t values_ = 0;
  std::vector<std::set<std::string>> names_;  // Of each object that is open; empty for an array.
};

}  // namespace

Json ParseStrictJson(std::string_view text, JsonLimits limits) {
  StrictRules rules(limits);
  try {
    return Json::parse(text, [&](int depth, Json::parse_event_t event, const Json& value) {
      rules.Check(depth, event, value);
      return true;
    });
  } catch (const Json::parse_error& failure) {
    // The parser's own text repeats what it has read, at any length and as it is.
    throw std::runtime_error("it is not sound JSON near its byte " + std::to_string(failure.byte));
  } catch (const Json::exception&) {
    throw std::runtime_error("it is not sound JSON: a number is too large");
  }
}

}  // namespace tolvarine::updater::application
