#include "release/strict_json.h"

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace tolvarine::updater::application {
namespace {

using Json = nlohmann::json;

constexpr std::uint64_t kLargestNumber = std::uint64_t{1} << 53;

// Follows the parser and refuses what it would accept: it keeps the last of two equal names.
class StrictRules {
 public:
  explicit StrictRules(std::size_t depth_limit) : depth_limit_(depth_limit) {}

  void Check(int depth, Json::parse_event_t event, const Json& value) {
    switch (event) {
      case Json::parse_event_t::object_start:
      case Json::parse_event_t::array_start:
        if (static_cast<std::size_t>(depth) >= depth_limit_) {
          throw std::runtime_error("arrays and objects are nested too deep");
        }
        names_.emplace_back();
        break;
      case Json::parse_event_t::object_end:
      case Json::parse_event_t::array_end:
        names_.pop_back();
        break;
      case Json::parse_event_t::key:
        if (!names_.back().insert(value.get<std::string>()).second) {
          throw std::runtime_error("the name \"" + value.get<std::string>() + "\" occurs twice");
        }
        break;
      case Json::parse_event_t::value:
        CheckNumber(value);
        break;
    }
  }

 private:
  static void CheckNumber(const Json& value) {
    if (!value.is_number()) return;
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > kLargestNumber) {
      throw std::runtime_error("the number " + value.dump() +
                               " is not a whole number from 0 to 2^53");
    }
  }

  std::size_t depth_limit_;
  std::vector<std::set<std::string>> names_;  // Of each object that is open; empty for an array.
};

}  // namespace

Json ParseStrictJson(std::string_view text, std::size_t depth_limit) {
  StrictRules rules(depth_limit);
  try {
    return Json::parse(text, [&](int depth, Json::parse_event_t event, const Json& value) {
      rules.Check(depth, event, value);
      return true;
    });
  } catch (const Json::exception& failure) {
    throw std::runtime_error(std::string("it is not sound JSON: ") + failure.what());
  }
}

}  // namespace tolvarine::updater::application
