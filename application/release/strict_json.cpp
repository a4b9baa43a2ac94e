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

// Refuses, event by event, what the library's own parser would accept: it keeps the last of two
// equal names, and any number. Its filter for such checks takes quadratic time.
class StrictRules : public Json::json_sax_t {
 public:
  explicit StrictRules(JsonLimits limits) : limits_(limits) {}

  bool null() override { return CountValue(); }
  bool boolean(bool) override { return CountValue(); }
  bool string(string_t&) override { return CountValue(); }
  bool binary(binary_t&) override { return CountValue(); }
  bool number_integer(number_integer_t) override { RefuseNumber(); }
  bool number_float(number_float_t, const string_t&) override { RefuseNumber(); }
  bool number_unsigned(number_unsigned_t number) override {
    if (number > kLargestNumber) RefuseNumber();
    return CountValue();
  }

  bool start_object(std::size_t) override { return Open(); }
  bool start_array(std::size_t) override { return Open(); }
  bool end_object() override { return Close(); }
  bool end_array() override { return Close(); }
  bool key(string_t& name) override {
    if (!names_.back().insert(name).second) {
      throw std::runtime_error("the name " + Shown(name) + " occurs twice");
    }
    return true;
  }

  // The parser's own text repeats what it has read, at any length and as it is.
  bool parse_error(std::size_t position, const std::string&, const Json::exception&) override {
    throw std::runtime_error("it is not sound JSON near its byte " + std::to_string(position));
  }

 private:
  [[noreturn]] static void RefuseNumber() {
    throw std::runtime_error("a number is not a whole number from 0 to 2^53");
  }

  // A value takes some hundred bytes of memory, and some of them two bytes of text.
  bool CountValue() {
    if (++values_ > limits_.values) {
      throw std::runtime_error("it has more than " + std::to_string(limits_.values) + " values");
    }
    return true;
  }

  bool Open() {
    if (names_.size() >= limits_.depth) {
      throw std::runtime_error("arrays and objects are nested too deep");
    }
    names_.emplace_back();
    return CountValue();
  }

  bool Close() {
    names_.pop_back();
    return true;
  }

  JsonLimits limits_;
  std::size_t values_ = 0;
  std::vector<std::set<std::string>> names_;  // Of each object that is open; empty for an array.
};

}  // namespace

Json ParseStrictJson(std::string_view text, JsonLimits limits) {
  StrictRules rules(limits);
  Json::sax_parse(text, &rules);
  return Json::parse(text);
}

}  // namespace tolvarine::updater::application
