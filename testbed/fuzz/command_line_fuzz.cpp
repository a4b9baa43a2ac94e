// The command line. Each line of an input is an argument, and `|` in it stands for a line feed, of
// which lists are full.

#include <algorithm>
#include <map>
#include <set>

#include "driver/command_line.h"
#include "fuzz_text.h"

namespace tolvarine::updater::fuzz {
namespace {

using Arguments = std::vector<std::u16string>;

Arguments ArgumentsOf(std::string_view bytes) {
  Arguments arguments;
  for (std::u16string& line : WideLines(bytes)) {
    std::ranges::replace(line, u'|', u'\n');
    arguments.emplace_back(line.c_str());  // No further than a null, as a vector would hold it.
  }
  return arguments;
}

bool Parses(const Arguments& arguments, UpdaterArguments& parsed) {
  std::vector<const char16_t*> vector = {u"updater.exe"};
  for (const std::u16string& argument : arguments) vector.push_back(argument.c_str());
  return ParseArguments(static_cast<std::int32_t>(vector.size()), vector.data(), parsed);
}

bool Accepts(const Arguments& arguments) {
  UpdaterArguments parsed;
  return Parses(arguments, parsed);
}

std::u16string Wide16(const std::string& text) { return {text.begin(), text.end()}; }

// What the arguments mean, by option; a list that is not there is as one that is empty.
std::map<std::u16string, std::u16string> Meaning(const UpdaterArguments& parsed) {
  std::map<std::u16string, std::u16string> meaning = {
      {u"--source", parsed.source},
      {u"--target", parsed.target},
      {u"--restart", parsed.restart},
      {u"--state-file", parsed.state_file},
      {u"--completed-file", parsed.completed_file},
      {u"--installed-manifest-file", parsed.installed_manifest_file},
      {u"--workspace", parsed.workspace},
      {u"--update-id", parsed.update_id},
      {u"--install-key", parsed.install_key},
      {u"--source-inventory", Wide16(SerializeSourceInventory(parsed.source_inventory))},
      {u"--managed-deletions", Wide16(SerializeManagedDeletionList(parsed.managed_deletions))},
      {u"--wait-pid", Wide16(std::to_string(parsed.wait_pid))}};
  if (parsed.has_wait_process_created_at) {
    meaning[u"--wait-process-created-at"] = Wide16(std::to_string(parsed.wait_process_created_at));
  }
  return meaning;
}

bool IsIdentifier(const std::u16string& text) {
  return text.size() == 64 && text.find_first_not_of(u"0123456789abcdef") == std::u16string::npos;
}

// A number as the application writes it. Others pass too, which is the business of its own tests.
bool IsPlainNumber(const std::u16string& text) {
  return text.size() < 10 && !text.empty() && (text == u"0" || text[0] != u'0') &&
         text.find_first_not_of(u"0123456789") == std::u16string::npos;
}

constexpr std::u16string_view kTexts[] = {u"--source",         u"--target",
                                          u"--restart",        u"--state-file",
                                          u"--completed-file", u"--installed-manifest-file",
                                          u"--workspace"};

// What the application itself would give; more than that passes. The lists are judged by their own
// parsers, which have targets of their own.
bool IsAsTheApplicationGivesIt(const Arguments& arguments) {
  std::map<std::u16string, std::u16string> given;
  for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) given[arguments[i]] = arguments[i + 1];
  const auto narrow = [&](const std::u16string& name) {
    const auto is_ascii = [](char16_t unit) { return unit < 0x80; };
    const std::u16string& value = given[name];
    return std::ranges::all_of(value, is_ascii) ? std::string(value.begin(), value.end()) : "";
  };
  SourceInventory inventory;
  ManagedDeletionList deletions;
  const bool texts = std::ranges::none_of(
      kTexts, [&](std::u16string_view name) { return given[std::u16string(name)].empty(); });
  const auto counts = [&](const std::u16string& name) {
    return IsPlainNumber(given[name]) && given[name] != u"0";
  };
  return texts && IsIdentifier(given[u"--update-id"]) && IsIdentifier(given[u"--install-key"]) &&
         counts(u"--wait-pid") && counts(u"--wait-process-created-at") &&
         ParseSourceInventory(narrow(u"--source-inventory"), inventory, nullptr) &&
         ParseManagedDeletionList(narrow(u"--managed-deletions"), deletions, nullptr) &&
         given.size() == 13 && arguments.size() == 26;
}

void ExpectRefusalIsDue(const Arguments& arguments) {
  Expect("what the application gives is taken", !IsAsTheApplicationGivesIt(arguments), arguments);
}

void ExpectMeaning(const Arguments& arguments, const UpdaterArguments& parsed) {
  Expect("options have values", arguments.size() % 2 == 0, arguments);
  auto meaning = Meaning(parsed);
  std::set<std::u16string> given;
  for (std::size_t i = 0; i + 1 < arguments.size(); i += 2) {
    const std::u16string& name = arguments[i];
    const std::u16string& value = arguments[i + 1];
    Expect("no option is given twice", given.insert(name).second, arguments);
    Expect("options are known", meaning.contains(name), arguments);
    const bool number = name.starts_with(u"--wait-");
    if (!number || IsPlainNumber(value)) ExpectSame("a value is kept", value, meaning[name]);
  }
  for (const auto& [name, value] : meaning) {
    Expect("what is required is given", given.contains(name) || name == u"--managed-deletions",
           arguments);
    Expect("no value is empty", !value.empty(), arguments);
  }
  Expect("identifiers have their form",
         IsIdentifier(parsed.update_id) && IsIdentifier(parsed.install_key), arguments);
  Expect("a process comes with its time",
         (parsed.wait_pid != 0) == parsed.has_wait_process_created_at, arguments);
}

// Takes the options in another order, and each of them away or twice.
void ExpectEachCounts(const Arguments& arguments, const UpdaterArguments& parsed) {
  Arguments turned;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    turned.insert(turned.begin(), {arguments[i], arguments[i + 1]});
    Arguments twice = arguments;
    twice.insert(twice.end(), {arguments[i], arguments[i + 1]});
    Expect("no option passes twice", !Accepts(twice), twice);
    Arguments without = arguments;
    without.erase(without.begin() + static_cast<std::ptrdiff_t>(i),
                  without.begin() + static_cast<std::ptrdiff_t>(i + 2));
    ExpectSame("only deletions can be left out", arguments[i] == u"--managed-deletions",
               Accepts(without), without);
  }
  UpdaterArguments again;
  Expect("the order does not matter", Parses(turned, again) && Meaning(again) == Meaning(parsed),
         turned);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater;
  fuzz::Machine();
  const fuzz::Arguments arguments = fuzz::ArgumentsOf(fuzz::Bytes(data, size));
  UpdaterArguments parsed;
  if (!fuzz::Parses(arguments, parsed)) {
    fuzz::ExpectRefusalIsDue(arguments);
    return 0;
  }
  fuzz::ExpectMeaning(arguments, parsed);
  fuzz::ExpectEachCounts(arguments, parsed);
  return 0;
}
