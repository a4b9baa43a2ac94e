// The command line: the fields have the values of the options. Each line of an input is an
// argument; `|` in it means a line feed, which the lists contain.

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
    arguments.emplace_back(line.c_str());  // Ends at a null, as the argument of a process does.
  }
  return arguments;
}

bool Parses(const Arguments& arguments, UpdaterArguments& parsed) {
  std::vector<const char16_t*> vector = {u"updater.exe"};
  for (const std::u16string& argument : arguments) vector.push_back(argument.c_str());
  return ParseArguments(static_cast<std::int32_t>(vector.size()), vector.data(), parsed);
}

std::u16string Wide16(const std::string& text) { return {text.begin(), text.end()}; }

// The fields as the values of their options. A list that is not given is like an empty one.
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

// A number as the application writes it. The unit tests cover the other numbers that are accepted.
bool IsPlainNumber(const std::u16string& text) {
  return text.size() < 10 && !text.empty() && (text == u"0" || text[0] != u'0') &&
         text.find_first_not_of(u"0123456789") == std::u16string::npos;
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
    if (!number || IsPlainNumber(value)) ExpectSame("a field has the value", meaning[name], value);
  }
  for (const auto& [name, value] : meaning) {
    Expect("required options are given", given.contains(name) || name == u"--managed-deletions",
           arguments);
    Expect("no value is empty", !value.empty(), arguments);
  }
  Expect("identifiers are 64 hexadecimal digits",
         IsIdentifier(parsed.update_id) && IsIdentifier(parsed.install_key), arguments);
  Expect("a process has its creation time",
         (parsed.wait_pid != 0) == parsed.has_wait_process_created_at, arguments);
}

}  // namespace
}  // namespace tolvarine::updater::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tolvarine::updater;
  fuzz::UseComputer();
  const fuzz::Arguments arguments = fuzz::ArgumentsOf(fuzz::Bytes(data, size));
  UpdaterArguments parsed;
  if (fuzz::Parses(arguments, parsed)) fuzz::ExpectMeaning(arguments, parsed);
  return 0;
}
